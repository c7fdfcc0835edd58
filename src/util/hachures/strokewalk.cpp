#include "util/hachures/strokewalk.h"

#include <cmath>

namespace ZMT::UTIL {

double StrokeWalk::bandOf(double height) const {
    return std::floor((height * settings_.scaling - settings_.baseHeight) / settings_.heightInterval);
}

bool StrokeWalk::isInPicture(const Position & at) const {
    return at.x >= 0.0 && at.y >= 0.0 && at.x < picture_.width() - 1.5 && at.y < picture_.height() - 1.5;
}

bool StrokeWalk::carriesStrokes(const StrokeField::Sample & sample, double band) const {
    return sample.slope > settings_.minSlope && sample.curvature > settings_.minCurvature &&
           sample.curvature < settings_.maxCurvature && bandOf(sample.height) == band;
}

void StrokeWalk::walk(Position & at, double band, bool isFirst, std::vector<Point> & points) const {
    points.clear();
    StrokeField::Sample sample;
    for (unsigned step = 0; step < settings_.maxNSteps / 2 && isInPicture(at); ++step) {
        if (!field_.sample(at.x, at.y, sample) || !carriesStrokes(sample, band)) return;
        double dx = sample.gradientX * ratio_, dy = sample.gradientY;
        if (dx != 0.0 && dy != 0.0) {
            const double length = std::sqrt(dx * dx + dy * dy);
            dx /= length;
            dy /= length;
        }
        Point point{static_cast<int>(std::floor(at.x + 0.5)), static_cast<int>(std::floor(at.y + 0.5)), at.x,
                    at.y};
        at.x -= dx;
        at.y -= dy;
        if (isFirst && at.x - point.column > 0.5) ++point.column;
        if (isFirst && at.y - point.line > 0.5) ++point.line;
        if (mask_ && mask_->lineComponentsU8(point.line)[point.column] != 255) return;
        points.push_back(point);
    }
}

void StrokeWalk::run(std::uint32_t seed, Stroke & stroke) const {
    Position at{field_.xOf(seed), field_.yOf(seed)};
    const double band = bandOf(field_.heightAt(seed));
    walk(at, band, true, stroke.first);
    walk(at, band, false, stroke.second);
}

} // namespace ZMT::UTIL
