#pragma once

#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/hybrid/hybriddata.h>
#include <zmt/core/terrain/geometry/hybrid/hybridstamper.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace ZMT::CORE {

/// The work of `CreateHybridData`, done by the constructor.
template <class Features> class TCreateHybrid_Impl {
public:
    using TinAccessor = HybridStamper::TinAccessor;

    /// `features` gives `CreateHybridData::Feature`s.
    TCreateHybrid_Impl(const NBX::SO<GridData> & grid, const Features & features) {
        NBX_CHECK(grid, L"no grid");
        if (!grid) return;
        HybridStamper stamper(*grid);
        for (const std::vector<NBX::Vector3Base<double>> & points : features)
            stamper.stamp(points);
        result_ = stamper.build();
    }

    const NBX::SO<HybridData> & result() const { return result_; }

private:
    NBX::SO<HybridData> result_;
};

} // namespace ZMT::CORE
