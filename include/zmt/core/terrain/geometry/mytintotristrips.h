#pragma once

#include <vector>

#include <zmt/core/terrain/geometry/mytinpointaccessor.h>
#include <zmt/core/terrain/geometry/tinalgorithmtintotristrips.h>

namespace ZMT::CORE {

/// Collects the triangle strips of a triangulation as point numbers.
class MyTinToTristrips : public TinAlgorithmTinToTristrips<MyTinPointAccessor> {
public:
    explicit MyTinToTristrips(const Tin<MyTinPointAccessor> & tin) : tin_(tin) { run(tin); }

    /// The vertices of all strips, one strip behind the other.
    const std::vector<unsigned> & numbers() const { return numbers_; }
    /// For each strip, the position in `numbers()` at which it ends.
    const std::vector<unsigned> & ends() const { return ends_; }

protected:
    void triangle(TinNode a, TinNode b, TinNode c) override {
        finishStrip();
        for (const TinNode n : {a, b, c})
            vertex(n);
    }
    void vertex(TinNode n) override {
        NBX_CHECK(n, L"no node");
        if (n) strip_.push_back(tin_.number(n));
    }
    void finishStrip() override {
        if (strip_.empty()) return;
        numbers_.insert(numbers_.end(), strip_.begin(), strip_.end());
        ends_.push_back(static_cast<unsigned>(numbers_.size()));
        strip_.clear();
    }

private:
    const Tin<MyTinPointAccessor> & tin_;
    std::vector<unsigned> numbers_, ends_, strip_;
};

} // namespace ZMT::CORE
