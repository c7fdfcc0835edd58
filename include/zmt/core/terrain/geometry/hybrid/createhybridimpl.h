#pragma once

#include <array>
#include <memory>
#include <vector>

#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/hybrid/hybriddata.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace ZMT::CORE {

class HybridStamper;

/// The corners of one cell, in a plane, with the height as the third component: the points of its
/// triangulation. All other points of a cell are known by their coordinates.
struct HybridCellAccessor {
    using Point = NBX::Vector3Base<double>;

    const Point & point(unsigned number) const { return corners[number & 3u]; }
    std::array<Point, 4> corners;
};

/// What `TCreateHybrid_Impl` does whatever its sequence of features. For one thread.
class HybridCreation {
public:
    /// Copies the heights of `grid`.
    explicit HybridCreation(const GridData & grid);
    ~HybridCreation();
    HybridCreation(const HybridCreation &) = delete;
    HybridCreation & operator=(const HybridCreation &) = delete;

    /// One to three points in geo coordinates; anything else is reported and left out.
    void stamp(const std::vector<NBX::Vector3Base<double>> & points);
    /// The grid with all that was stamped, to be made once. Throws `NBX::IOError` for more vertices than can
    /// be counted.
    NBX::SO<HybridData> finish();

private:
    std::unique_ptr<HybridStamper> stamper_;
};

/// The work of `CreateHybridData`, done by the constructor.
template <class Features> class TCreateHybrid_Impl {
public:
    using TinAccessor = HybridCellAccessor;

    /// `features` gives `CreateHybridData::Feature`s.
    TCreateHybrid_Impl(const NBX::SO<GridData> & grid, const Features & features) {
        NBX_CHECK(grid, L"no grid");
        if (!grid) return;
        HybridCreation creation(*grid);
        for (const std::vector<NBX::Vector3Base<double>> & points : features)
            creation.stamp(points);
        result_ = creation.finish();
    }

    const NBX::SO<HybridData> & result() const { return result_; }

private:
    NBX::SO<HybridData> result_;
};

} // namespace ZMT::CORE
