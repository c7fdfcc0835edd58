#pragma once

#include <QImage>
#include <QWidget>

#include "scene/groundmeasure.h"

/// Heights over the distance along a line, in the colours of the window. Where there is no ground the curve
/// has a gap. The place under the mouse is told, and marked.
class ProfilePlot : public QWidget {
    Q_OBJECT
public:
    explicit ProfilePlot(QWidget * parent = nullptr);

    void setProfile(const GroundProfile & profile);
    const GroundProfile & profile() const { return profile_; }
    /// The same as a picture, dark on white.
    QImage picture(const QSize & size) const;

signals:
    /// The sample under the mouse; -1 for none.
    void pointed(int sample);

protected:
    void paintEvent(QPaintEvent * event) override;
    void mouseMoveEvent(QMouseEvent * event) override;
    void leaveEvent(QEvent * event) override;

private:
    struct Look;
    void draw(QPainter & painter, const QRectF & frame, const Look & look) const;

    GroundProfile profile_;
    int pointed_ = -1;
};
