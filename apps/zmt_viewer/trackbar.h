#pragma once

#include <QToolBar>

#include <nbx/object/so.h>
#include <zmt/core/vector/trackplayer.h>

#include "landscape/tracks.h"

class QAction;
class QComboBox;
class QLabel;
class QSlider;

/// Plays the tracks of a landscape: a button, a slider over their time, which shows when nobody knows where
/// they were, and the speed. Hidden without any.
class TrackBar : public QToolBar {
    Q_OBJECT
public:
    explicit TrackBar(QWidget * parent = nullptr);
    ~TrackBar() override;

    /// Shows other tracks, which outlive this or the next call, at their time and paused; null for none. The
    /// speed stays where they last as long, and else lets them pass within a minute or so.
    void setTracks(Tracks * tracks);
    /// Null without tracks.
    ZMT::CORE::TrackPlayer * player() const { return player_.get(); }

    // For keys; nothing without tracks.
    void togglePlay();
    void pause();
    /// By so many of the speeds there are.
    void changeSpeed(int steps);
    /// By so many hundredths of all time.
    void move(int hundredths);

signals:
    /// The tracks lie elsewhere.
    void moved();

protected:
    void changeEvent(QEvent * event) override;

private:
    void setTime(double time);
    void follow();
    void showPlaying();
    QString timeText() const;

    Tracks * tracks_ = nullptr;
    NBX::SO<ZMT::CORE::TrackPlayer> player_;
    double length_ = 0.0; ///< of the last tracks, in seconds
    QAction * play_;
    QSlider * slider_;
    QLabel * time_;
    QComboBox * speed_;
};
