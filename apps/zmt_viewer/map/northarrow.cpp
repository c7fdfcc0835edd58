#include "northarrow.h"

#include <cmath>

#include <QPainter>
#include <QPainterPath>

#include "plate.h"

namespace {

constexpr int s_arrowSide = 56;
constexpr double s_needleLength = 19.0, s_needleWidth = 7.0, s_letterSize = 11.0;

} // namespace

NorthArrow::NorthArrow(QWidget * parent) : QAbstractButton(parent) {
    setObjectName("northArrow");
    setAccessibleName(tr("North up"));
    // Keys go on to move the view.
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    resize(sizeHint());
    hide();
}

QSize NorthArrow::sizeHint() const {
    return {s_arrowSide, s_arrowSide};
}

void NorthArrow::setHeading(double heading) {
    if (heading == heading_) return;
    heading_ = heading;
    update();
}

void NorthArrow::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    drawPlate(painter, rect());
    painter.translate(width() / 2.0, height() / 2.0);
    painter.rotate(-heading_ * 180.0 / M_PI);
    const QColor needle(0xe8, 0x5a, 0x48);
    for (const double side : {-1.0, 1.0}) {
        QPainterPath half;
        half.moveTo(0.0, -s_needleLength + s_letterSize * 0.5);
        half.lineTo(side * s_needleWidth, s_needleLength);
        half.lineTo(0.0, s_needleLength * 0.6);
        half.closeSubpath();
        painter.fillPath(half, side < 0.0 ? needle : needle.darker(140));
    }
    QFont letter = font();
    letter.setPixelSize(int(s_letterSize));
    letter.setBold(true);
    painter.setFont(letter);
    painter.setPen(Qt::white);
    painter.drawText(QRectF(-10.0, -s_needleLength - s_letterSize * 0.7, 20.0, s_letterSize + 2.0),
                     Qt::AlignCenter, tr("N"));
}
