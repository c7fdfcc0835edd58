#pragma once

#include <QAbstractButton>

/// An arrow over a picture that points to the north of the map. A click wishes that to be up.
class NorthArrow : public QAbstractButton {
    Q_OBJECT
public:
    explicit NorthArrow(QWidget * parent = nullptr);

    /// Which way the picture looks, in radians clockwise from north.
    void setHeading(double heading);
    double heading() const { return heading_; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent * event) override;

private:
    double heading_ = 0.0;
};
