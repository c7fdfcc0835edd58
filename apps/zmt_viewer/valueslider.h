#pragma once

#include <QWidget>

class QLabel;
class QSlider;

/// A slider over the decades of a positive number, or evenly over any range, with its name and its value.
class ValueSlider : public QWidget {
    Q_OBJECT
public:
    /// `unit` stands behind the value. Where `none` is given, the right end means an infinite value, in whose
    /// place it is shown.
    ValueSlider(const QString & name, double least, double largest, const QString & unit,
                const QString & none = {});

    /// From now on evenly over this range, at its least value.
    void setEvenRange(double least, double largest);

    double value() const { return value_; }
    /// Shows a value without telling; outside the range the slider stands at its end.
    void setValue(double value);
    /// By so many of its steps, and tells.
    void move(int steps);

signals:
    void valueChanged(double value);

private:
    void follow(int position);
    void showValue();

    double least_, largest_;
    bool isEven_ = false;
    double value_;
    QString unit_, none_;
    QSlider * slider_;
    QLabel * text_;
};
