// Lines are sampled, and sums are taken of the samples. An area of ground is that of the map times the mean
// slope of a lattice of triangles inside, so that its border costs no accuracy.

#include "groundmeasure.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace {

using MapPoint = NBX::Vector3Base<double>;

constexpr double s_leastAreaRows = 64.0; ///< across a polygon, however small

/// From the samples. Across a gap it climbs from the last height to the next.
void sumUp(GroundProfile & profile) {
    double low = HUGE_VAL, high = -HUGE_VAL, last = 0.0;
    for (std::size_t i = 0; i < profile.samples.size(); ++i) {
        const GroundProfile::Sample & sample = profile.samples[i];
        const bool isKnown = std::isfinite(sample.height);
        const double step = isKnown && low <= high ? sample.height - last : 0.0;
        if (i > 0)
            profile.groundLength += std::hypot(sample.distance - profile.samples[i - 1].distance, step);
        (step > 0.0 ? profile.ascent : profile.descent) += std::abs(step);
        profile.hasGaps |= !isKnown;
        if (!isKnown) continue;
        last = sample.height;
        low = std::min(low, last);
        high = std::max(high, last);
    }
    profile.hasHeights = low <= high;
    if (!profile.hasHeights) return;
    profile.lowest = low;
    profile.highest = high;
}

/// By the crossings of a ray to the right.
bool isInside(const std::vector<MapPoint> & corners, double x, double z) {
    bool inside = false;
    for (std::size_t i = 0, j = corners.size() - 1; i < corners.size(); j = i++) {
        const MapPoint &a = corners[i], &b = corners[j];
        if ((a.z > z) != (b.z > z) && x < a.x + (b.x - a.x) * (z - a.z) / (b.z - a.z)) inside = !inside;
    }
    return inside;
}

/// Of a triangle with two sides of length `side` at a right angle in plan, that climb by so much.
double areaOfClimb(double side, double one, double other) {
    return 0.5 * side * std::sqrt(side * side + one * one + other * other);
}

/// Heights on a lattice, and how much larger the ground is there than its plan.
class SlopeLattice {
public:
    SlopeLattice(const std::vector<MapPoint> & corners, double spacing) : corners_(corners) {
        const auto [left, right] = std::minmax_element(
            corners.begin(), corners.end(), [](const MapPoint & a, const MapPoint & b) { return a.x < b.x; });
        const auto [lower, upper] = std::minmax_element(
            corners.begin(), corners.end(), [](const MapPoint & a, const MapPoint & b) { return a.z < b.z; });
        minX_ = left->x;
        minZ_ = lower->z;
        const double width = right->x - minX_, height = upper->z - minZ_;
        side_ = std::max(std::min(spacing, std::min(width, height) / s_leastAreaRows),
                         std::sqrt(width * height / mostAreaCells));
        columns_ = std::size_t(std::ceil(width / side_));
        rows_ = std::size_t(std::ceil(height / side_));
    }

    /// The mean of the squares whose middles are inside; 1 where no heights are known.
    double meanFactor(const GroundHeight & heightAt) const {
        std::vector<double> below(columns_ + 1), above(columns_ + 1);
        double sum = 0.0;
        std::size_t count = 0;
        readRow(0, heightAt, above);
        for (std::size_t row = 0; row < rows_; ++row) {
            std::swap(below, above);
            readRow(row + 1, heightAt, above);
            for (std::size_t i = 0; i < columns_; ++i) {
                const double known = below[i] + below[i + 1] + above[i] + above[i + 1];
                if (!std::isfinite(known) ||
                    !isInside(corners_, xOf(double(i) + 0.5), zOf(double(row) + 0.5)))
                    continue;
                sum += areaOfClimb(side_, below[i + 1] - below[i], above[i + 1] - below[i + 1]) +
                       areaOfClimb(side_, above[i + 1] - above[i], above[i] - below[i]);
                ++count;
            }
        }
        return count > 0 ? sum / (double(count) * side_ * side_) : 1.0;
    }

private:
    double xOf(double column) const { return minX_ + column * side_; }
    double zOf(double row) const { return minZ_ + row * side_; }
    void readRow(std::size_t row, const GroundHeight & heightAt, std::vector<double> & heights) const {
        for (std::size_t i = 0; i <= columns_; ++i)
            heights[i] = heightAt(xOf(double(i)), zOf(double(row)));
    }

    const std::vector<MapPoint> & corners_;
    double minX_ = 0.0, minZ_ = 0.0, side_ = 1.0;
    std::size_t columns_ = 0, rows_ = 0;
};

void appendNumber(std::string & text, double number) {
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed, 3).ptr;
    text.append(digits, end);
}

} // namespace

GroundProfile profileAlong(const std::vector<MapPoint> & line, double spacing,
                           const GroundHeight & heightAt) {
    GroundProfile profile;
    if (line.empty()) return profile;
    double whole = 0.0;
    for (std::size_t i = 1; i < line.size(); ++i)
        whole += std::hypot(line[i].x - line[i - 1].x, line[i].z - line[i - 1].z);
    const double step = std::max(spacing, whole / mostProfileSamples);
    const auto add = [&](double distance, double x, double y) {
        profile.samples.push_back({distance, x, y, heightAt(x, y)});
    };
    add(0.0, line[0].x, line[0].z);
    for (std::size_t i = 1; i < line.size(); ++i) {
        const MapPoint &from = line[i - 1], &to = line[i];
        const double part = std::hypot(to.x - from.x, to.z - from.z);
        const double steps = part > 0.0 ? std::ceil(part / step) : 0.0;
        for (double k = 1.0; k <= steps; k += 1.0) {
            const double share = k / steps;
            add(profile.length + part * share, from.x + (to.x - from.x) * share,
                from.z + (to.z - from.z) * share);
        }
        profile.length += part;
    }
    sumUp(profile);
    return profile;
}

std::string profileText(const GroundProfile & profile) {
    std::string text = "distance,x,y,height\n";
    for (const GroundProfile::Sample & sample : profile.samples) {
        for (const double number : {sample.distance, sample.x, sample.y}) {
            appendNumber(text, number);
            text += ',';
        }
        if (std::isfinite(sample.height)) appendNumber(text, sample.height);
        text += '\n';
    }
    return text;
}

/// Gauss's formula, from the first corner, as map coordinates are large.
double planArea(const std::vector<MapPoint> & corners) {
    double twice = 0.0;
    for (std::size_t i = 2; i < corners.size(); ++i) {
        const MapPoint a = corners[i - 1] - corners[0], b = corners[i] - corners[0];
        twice += a.x * b.z - b.x * a.z;
    }
    return std::abs(twice) / 2.0;
}

double groundArea(const std::vector<MapPoint> & corners, double spacing, const GroundHeight & heightAt) {
    const double area = planArea(corners);
    if (area <= 0.0) return 0.0;
    return area * SlopeLattice(corners, spacing).meanFactor(heightAt);
}
