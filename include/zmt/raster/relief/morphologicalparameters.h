#pragma once

#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>
#include <zmt/raster/simplerasterdata.h>

namespace NBX {
class Progress;
}

namespace ZMT::RASTER {

/// What the shape of the ground is around each cell of a raster, by `QuadraticFit`: rasters of the same grid,
/// which are NaN where the window around a cell leaves the raster or holds no data.
class MorphologicalParameters : public NBX::SharedObj {
    NBX_CLASS(MorphologicalParameters, NBX::SharedObj)
public:
    using Raster = SimpleRasterData<float>;

    /// Heights are multiplied by `scaling`, so that they have the unit of the map. `windowSize` is that of
    /// `QuadraticFit`; even ones count as the next larger odd one. What slopes by no more than `tolerance`,
    /// in degrees, counts as level: `slope` and `crossSectionCurvature` are 0 there. A null raster is
    /// reported, and all results are null; also when `progress` was cancelled, whose total the work takes
    /// whole.
    MorphologicalParameters(const RasterData * raster, float scaling, unsigned windowSize, float tolerance,
                            NBX::Progress * progress = nullptr);

    /// The gradient, in height units a map unit: how the ground rises to the east, and to the north.
    const NBX::SO<Raster> & coefficientX() const { return coefficientX_; }
    const NBX::SO<Raster> & coefficientY() const { return coefficientY_; }
    /// In degrees.
    const NBX::SO<Raster> & slope() const { return slope_; }
    /// In 1 / map unit, positive on ridges.
    const NBX::SO<Raster> & crossSectionCurvature() const { return crossSectionCurvature_; }

private:
    void compute(const RasterData & raster, float scaling, unsigned windowSize, float tolerance,
                 NBX::Progress * progress);

    NBX::SO<Raster> coefficientX_, coefficientY_, slope_, crossSectionCurvature_;
};

} // namespace ZMT::RASTER
