#pragma once

namespace ZMT::CORE {

/// A place in plan: x to the east, z to the north.
struct PlanPoint {
    double x, z;
    bool operator==(const PlanPoint & other) const { return x == other.x && z == other.z; }
    PlanPoint operator+(const PlanPoint & o) const { return {x + o.x, z + o.z}; }
    PlanPoint operator-(const PlanPoint & o) const { return {x - o.x, z - o.z}; }
    PlanPoint operator*(double factor) const { return {x * factor, z * factor}; }
};

/// A rectangle around the origin, beyond which nothing is drawn.
class PlanWindow {
public:
    PlanWindow(double halfX, double halfZ) : halfX_(halfX), halfZ_(halfZ) {}

    double halfX() const { return halfX_; }
    double halfZ() const { return halfZ_; }
    PlanWindow grownBy(double margin) const { return {halfX_ + margin, halfZ_ + margin}; }
    bool contains(const PlanPoint & p) const {
        return p.x >= -halfX_ && p.x <= halfX_ && p.z >= -halfZ_ && p.z <= halfZ_;
    }

    /// The part of a segment that lies within, as shares of the way from `a` to `b`. False without one.
    bool clip(const PlanPoint & a, const PlanPoint & b, double & from, double & to) const;

private:
    double halfX_, halfZ_;
};

} // namespace ZMT::CORE
