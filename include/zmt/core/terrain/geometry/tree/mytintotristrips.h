#pragma once

#include <vector>

#include <zmt/core/terrain/geometry/tin/tinalgorithmtintotristrips.h>
#include <zmt/core/terrain/geometry/tree/mytinpointaccessor.h>

namespace ZMT::CORE {

/// Collects the triangle strips of a triangulation. It keeps nodes, which lead to their point numbers, and
/// ends of 32 bits, as the strips of a large patch have more than 65535 entries.
class MyTinToTristrips : public TinAlgorithmTinToTristrips<MyTinPointAccessor> {
public:
    using TinAlgorithmTinToTristrips::centre;

    explicit MyTinToTristrips(const Tin<MyTinPointAccessor> & tin) { run(tin); }
    /// The strips converge on `root`. Draws nothing at random, and leaves what belongs to the process as it
    /// is.
    MyTinToTristrips(const Tin<MyTinPointAccessor> & tin, TinFace root) { run(tin, root); }

    /// The nodes of all strips, one strip behind the other.
    const std::vector<TinNode> & nodes() const { return nodes_; }
    /// For each strip, the position in `nodes()` at which it ends.
    const std::vector<unsigned> & ends() const { return ends_; }

protected:
    void triangle(TinNode a, TinNode b, TinNode c) override {
        finishStrip();
        for (const TinNode n : {a, b, c})
            vertex(n);
    }
    void vertex(TinNode n) override {
        NBX_CHECK(n, L"no node");
        if (n) strip_.push_back(n);
    }
    void finishStrip() override {
        if (strip_.empty()) return;
        nodes_.insert(nodes_.end(), strip_.begin(), strip_.end());
        ends_.push_back(static_cast<unsigned>(nodes_.size()));
        strip_.clear();
    }

private:
    std::vector<TinNode> nodes_, strip_;
    std::vector<unsigned> ends_;
};

} // namespace ZMT::CORE
