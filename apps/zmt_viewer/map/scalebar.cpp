#include "scalebar.h"

#include <cmath>

#include <QPainter>

#include "plate.h"
#include "scene/roundnumbers.h"

namespace {

constexpr double s_longestBar = 150.0; ///< in pixels
constexpr double s_barMargin = 12.0, s_barHeight = 5.0;

} // namespace

ScaleBar::ScaleBar(QWidget * parent) : QWidget(parent) {
    setObjectName("scaleBar");
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setToolTip(tr("In the middle of the picture"));
    hide();
}

void ScaleBar::setScale(std::optional<double> metresPerPixel) {
    // What is shown anew draws the picture below it anew.
    if (metresPerPixel == scale_) return;
    scale_ = metresPerPixel;
    const bool isKnown = metresPerPixel && std::isfinite(*metresPerPixel) && *metresPerPixel > 0.0;
    metres_ = isKnown ? roundNumberTo(*metresPerPixel * s_longestBar) : 0.0;
    length_ = isKnown ? metres_ / *metresPerPixel : 0.0;
    setVisible(isKnown);
    resize(int(std::ceil(length_ + 2.0 * s_barMargin)),
           fontMetrics().height() + int(s_barHeight + s_barMargin) + 2);
    update();
}

QString ScaleBar::text() const {
    return QString::fromStdString(roundLengthText(metres_));
}

void ScaleBar::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    drawPlate(painter, rect());
    const double left = s_barMargin, right = left + length_;
    const double bottom = height() - s_barMargin / 2.0 - 1.0, top = bottom - s_barHeight;
    painter.setPen(QPen(Qt::white, 2.0, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin));
    const QPointF bar[] = {{left, top}, {left, bottom}, {right, bottom}, {right, top}};
    painter.drawPolyline(bar, 4);
    painter.drawText(QRectF(0.0, 3.0, width(), fontMetrics().height()), Qt::AlignCenter, text());
}
