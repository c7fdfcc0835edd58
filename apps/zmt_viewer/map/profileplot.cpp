// One drawing for the panel and for pictures, which differ in their colours. Marks stand at round numbers.

#include "profileplot.h"

#include <algorithm>
#include <cmath>

#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include "scene/roundnumbers.h"

namespace {

constexpr double s_plotLeft = 62.0, s_plotRight = 14.0, s_plotTop = 12.0, s_plotBottom = 24.0;
constexpr double s_tickDistance = 70.0, s_tickHeight = 30.0; ///< between marks, at least, in points
constexpr double s_heightMargin = 0.05;                      ///< above and below the curve, of its range

QString plotNumber(double value, double step) {
    return QLocale::c().toString(value, 'f', std::clamp(-int(std::floor(std::log10(step))), 0, 6));
}

/// Where heights and distances lie.
class PlotScale {
public:
    PlotScale(const GroundProfile & profile, const QRectF & frame) : frame_(frame) {
        length_ = std::max(profile.length, 1e-9);
        const double range = std::max(profile.highest - profile.lowest, 1e-3 * length_);
        const double middle = (profile.lowest + profile.highest) / 2.0;
        low_ = middle - range * (0.5 + s_heightMargin);
        high_ = middle + range * (0.5 + s_heightMargin);
    }

    double x(double distance) const { return frame_.left() + frame_.width() * distance / length_; }
    double y(double height) const {
        return frame_.bottom() - frame_.height() * (height - low_) / (high_ - low_);
    }
    double distanceAt(double x) const { return (x - frame_.left()) / frame_.width() * length_; }
    double low() const { return low_; }
    double high() const { return high_; }
    double distanceStep() const { return roundNumberFrom(length_ * s_tickDistance / frame_.width()); }
    double heightStep() const { return roundNumberFrom((high_ - low_) * s_tickHeight / frame_.height()); }

private:
    QRectF frame_;
    double length_, low_, high_;
};

QRectF plotFrame(const QRectF & all) {
    return all.adjusted(s_plotLeft, s_plotTop, -s_plotRight, -s_plotBottom);
}

} // namespace

struct ProfilePlot::Look {
    QColor ground, grid, text, curve;
};

ProfilePlot::ProfilePlot(QWidget * parent) : QWidget(parent) {
    setObjectName("profile");
    setMouseTracking(true);
    setMinimumSize(240, 110);
}

void ProfilePlot::setProfile(const GroundProfile & profile) {
    profile_ = profile;
    pointed_ = -1;
    update();
}

QImage ProfilePlot::picture(const QSize & size) const {
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    draw(painter, image.rect(),
         {QColor(0xe4, 0xdc, 0xc8), QColor(0xd0, 0xd0, 0xd0), Qt::black, QColor(0x7a, 0x3c, 0x10)});
    return image;
}

void ProfilePlot::draw(QPainter & painter, const QRectF & all, const Look & look) const {
    const QRectF frame = plotFrame(all);
    if (!profile_.hasHeights || profile_.length <= 0.0 || frame.width() < 1.0 || frame.height() < 1.0) return;
    painter.setRenderHint(QPainter::Antialiasing);
    const PlotScale scale(profile_, frame);
    const auto & samples = profile_.samples;
    QPainterPath curve, ground;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (!std::isfinite(samples[i].height)) continue;
        const QPointF point(scale.x(samples[i].distance), scale.y(samples[i].height));
        const bool isFirst = i == 0 || !std::isfinite(samples[i - 1].height);
        const bool isLast = i + 1 == samples.size() || !std::isfinite(samples[i + 1].height);
        if (isFirst) {
            curve.moveTo(point);
            ground.moveTo(point.x(), frame.bottom());
        }
        curve.lineTo(point);
        ground.lineTo(point);
        if (isLast) ground.lineTo(point.x(), frame.bottom());
    }
    painter.fillPath(ground, look.ground);
    painter.setPen(look.grid);
    const double heightStep = scale.heightStep(), distanceStep = scale.distanceStep();
    for (double height = std::ceil(scale.low() / heightStep) * heightStep; height <= scale.high();
         height += heightStep) {
        const double y = scale.y(height);
        painter.setPen(look.grid);
        painter.drawLine(QPointF(frame.left(), y), QPointF(frame.right(), y));
        painter.setPen(look.text);
        painter.drawText(QRectF(0.0, y - 10.0, s_plotLeft - 6.0, 20.0), Qt::AlignRight | Qt::AlignVCenter,
                         plotNumber(height, heightStep));
    }
    for (double distance = 0.0; distance <= profile_.length * (1.0 + 1e-9); distance += distanceStep)
        painter.drawText(QRectF(scale.x(distance) - 40.0, frame.bottom() + 3.0, 80.0, 18.0), Qt::AlignCenter,
                         plotNumber(distance, distanceStep));
    painter.setPen(QPen(look.curve, 1.6));
    painter.drawPath(curve);
    if (pointed_ < 0 || pointed_ >= int(samples.size())) return;
    painter.drawLine(QPointF(scale.x(samples[std::size_t(pointed_)].distance), frame.top()),
                     QPointF(scale.x(samples[std::size_t(pointed_)].distance), frame.bottom()));
}

void ProfilePlot::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    QColor shade = palette().color(QPalette::Highlight);
    shade.setAlpha(70);
    draw(painter, rect(),
         {shade, palette().color(QPalette::Mid), palette().color(QPalette::WindowText),
          palette().color(QPalette::Highlight)});
}

void ProfilePlot::mouseMoveEvent(QMouseEvent * event) {
    if (!profile_.hasHeights || profile_.length <= 0.0) return;
    const double distance = PlotScale(profile_, plotFrame(rect())).distanceAt(event->position().x());
    const auto before = [](const GroundProfile::Sample & sample, double d) { return sample.distance < d; };
    const auto found = std::lower_bound(profile_.samples.begin(), profile_.samples.end(), distance, before);
    pointed_ = int(
        std::min<std::size_t>(std::size_t(found - profile_.samples.begin()), profile_.samples.size() - 1));
    update();
    emit pointed(pointed_);
}

void ProfilePlot::leaveEvent(QEvent *) {
    pointed_ = -1;
    update();
    emit pointed(-1);
}
