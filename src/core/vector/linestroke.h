#pragma once

#include <cstddef>
#include <vector>

#include "planwindow.h"

namespace ZMT::CORE {

/// Turns lines into what is drawn of them: segments, or ribbons of triangles with round joints and ends. All
/// lengths are in metres, vertices are three floats each, x, 0 and z.
class LineStroke {
public:
    struct Pen {
        double halfWidth = 0.0;   ///< 0 for segments
        double tolerance = 0.0;   ///< how far the outline of a ribbon may lie off
        std::vector<double> dash; ///< dashes and gaps in turn, of an even number; empty for whole lines
    };
    /// Whole lines come behind so many dashes.
    static constexpr std::size_t mostDashes = 500000;

    /// What lies beyond `window` is left out. `vertices` outlive this.
    LineStroke(const PlanWindow & window, Pen pen, std::vector<float> & vertices);

    void draw(const std::vector<PlanPoint> & line, bool isClosed);

private:
    struct Segment;

    void drawSegments(const std::vector<PlanPoint> & line, bool isClosed);
    void drawWhole(const Segment & segment);
    void drawDashes(const Segment & segment, double start);
    void drawPiece(const Segment & segment, double from, double to);
    void drawJoint(const PlanPoint & at, const PlanPoint & before, const PlanPoint & behind);
    bool isDash(double along) const;
    void push(const PlanPoint & p);

    PlanWindow window_;
    Pen pen_;
    double period_ = 0.0, step_;
    std::size_t dashes_ = 0;
    std::vector<PlanPoint> points_; ///< of the line, none twice in a row
    std::vector<float> & vertices_;
};

} // namespace ZMT::CORE
