#include "plate.h"

#include <QPainter>

void drawPlate(QPainter & painter, const QRect & place) {
    constexpr double radius = 6.0;
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(20, 28, 36, 150)); // as the figures of the picture
    painter.drawRoundedRect(place, radius, radius);
    painter.setBrush(Qt::NoBrush);
}
