#pragma once

#include <cstddef>
#include <vector>

#include <nbx/image/image.h>
#include <zmt/util/hachures/hachuresettings.h>

#include "util/hachures/strokefield.h"

namespace ZMT::UTIL {

/// Goes down the line of steepest slope, step by step, to the end of a stroke.
class StrokeWalk {
public:
    /// A pixel of a stroke, and where the stroke went through it.
    struct Point {
        int column, line;
        double x, y;
    };
    /// One stroke: two walks, the second of which begins where the first one ends.
    struct Stroke {
        std::vector<Point> first, second;

        /// The points as they are drawn: those of the first walk from its end up to the seed, which is left
        /// out, then those of the second one.
        std::size_t size() const { return (first.empty() ? 0 : first.size() - 1) + second.size(); }
        const Point & operator[](std::size_t i) const {
            const std::size_t above = first.empty() ? 0 : first.size() - 1;
            return i < above ? first[above - i] : second[i - above];
        }
    };

    /// Borrows all. `mask` is null where strokes may overlap; otherwise they end where it is not white.
    /// `ratio` is the height of a pixel divided by its width.
    StrokeWalk(const StrokeField & field, const HachureSettings & settings, const NBX::Image & picture,
               const NBX::Image * mask, double ratio)
        : field_(field), settings_(settings), picture_(picture), mask_(mask), ratio_(ratio) {}

    /// The stroke that begins at a cell, in the place of the one before.
    void run(std::uint32_t seed, Stroke & stroke) const;

private:
    struct Position {
        double x, y;
    };

    double bandOf(double height) const;
    bool isInPicture(const Position & at) const;
    bool carriesStrokes(const StrokeField::Sample & sample, double band) const;
    void walk(Position & at, double band, bool isFirst, std::vector<Point> & points) const;

    const StrokeField & field_;
    const HachureSettings & settings_;
    const NBX::Image & picture_;
    const NBX::Image * mask_;
    double ratio_;
};

} // namespace ZMT::UTIL
