#pragma once

#include <optional>

#include <QWidget>

#include "landscape/lighting.h"

class QCheckBox;
class QComboBox;
class QDateEdit;
class QDoubleSpinBox;
class QLabel;
class QSlider;
class QTimeEdit;

/// When and where the sun shines: date, time and its zone, and the place, with what that comes to in the sky.
/// Times are those of the zone, which does not know of summer time: that is the next zone.
class SunPanel : public QWidget {
    Q_OBJECT
public:
    explicit SunPanel(QWidget * parent = nullptr);

    /// Shows the sun of a moment, to its minute, or switches it off and leaves the clock as it is, without
    /// telling.
    void setMoment(const std::optional<SunMoment> & moment);
    /// Where clock and place stand when it is switched on. It is off.
    void setClock(const SunMoment & moment);
    /// None where it is switched off.
    std::optional<SunMoment> moment() const;
    /// Why there can be no sun; empty where there can.
    void setProblem(const QString & problem);
    /// As if the user had clicked the switch.
    void toggle();

    /// The usual zone of a place, in minutes: of whole hours, by its longitude.
    static int usualZone(double longitude);
    /// "UTC+05:45".
    static QString zoneName(int minutes);

signals:
    void changed();

private:
    SunMoment shown() const;
    void show(const SunMoment & moment);
    void take();
    void showSun();

    QCheckBox * isOn_;
    QDateEdit * date_;
    QTimeEdit * time_;
    QSlider * day_; ///< the time, in minutes
    QComboBox * zone_;
    QDoubleSpinBox * longitude_;
    QDoubleSpinBox * latitude_;
    QLabel * position_;
    QLabel * problem_;
    bool isShowing_ = false;
};
