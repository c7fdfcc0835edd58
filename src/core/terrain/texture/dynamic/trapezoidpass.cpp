#include "trapezoidpass.h"

#include <array>

namespace ZMT::CORE {

namespace {

TrapezoidPass * s_current = nullptr;

} // namespace

TrapezoidPass::TrapezoidPass() : before_(s_current) {
    s_current = this;
}

TrapezoidPass::~TrapezoidPass() {
    s_current = before_;
}

TrapezoidPass * TrapezoidPass::current() {
    return s_current;
}

TrapezoidPass::Loop TrapezoidPass::visiblePlan(const NBX::Bounds & box) const {
    using Point = NBX::Vector3Base<double>;
    const Point low = box.getLLF(), high = box.getURB();
    const Loop plan = {Point(low.x, 0.0, low.z), Point(high.x, 0.0, low.z), Point(high.x, 0.0, high.z),
                       Point(low.x, 0.0, high.z)};
    const Matrix toPlan = trapMat.inverse();
    Loop shown;
    for (const auto & [x, y] :
         {std::array{-1.0, -1.0}, std::array{1.0, -1.0}, std::array{1.0, 1.0}, std::array{-1.0, 1.0}}) {
        const Point p = toPlan * Point(x, y, 0.0);
        shown.emplace_back(p.x, 0.0, p.y);
    }
    NBX::AlgorithmImpl::orientLoop(shown);
    return NBX::AlgorithmImpl::clipConvexPolygons(plan, shown);
}

} // namespace ZMT::CORE
