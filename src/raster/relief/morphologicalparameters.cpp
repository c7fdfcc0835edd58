#include <zmt/raster/relief/morphologicalparameters.h>

#include <algorithm>
#include <limits>
#include <vector>

#include <nbx/object/errorhandler.h>
#include <nbx/object/progress.h>
#include <zmt/raster/relief/quadraticfit.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(MorphologicalParameters, NBX::SharedObj)

namespace {

constexpr float s_undefined = std::numeric_limits<float>::quiet_NaN();

NBX::SO<MorphologicalParameters::Raster> newRaster(const RasterGrid & grid) {
    return new MorphologicalParameters::Raster(grid.cellsX, grid.cellsY, grid.minX, grid.minY, grid.cellSizeX,
                                               grid.cellSizeY, true, s_undefined);
}

/// The rows of a raster that a window needs, each read once while the window goes north.
class RowWindow {
public:
    RowWindow(const RasterData & raster, float scaling, unsigned size)
        : raster_(raster), scaling_(scaling), values_(raster.cellsX()) {
        rows_.assign(size, std::vector<float>(raster.cellsX()));
    }

    /// The next row, counted from 0, comes in in the north.
    void goNorth() {
        std::rotate(rows_.begin(), rows_.begin() + 1, rows_.end());
        raster_.valueRow(next_++, values_.data());
        std::transform(values_.begin(), values_.end(), rows_.back().begin(), [this](double value) {
            return raster_.isUndefValue(value) ? s_undefined : static_cast<float>(value * scaling_);
        });
    }
    std::vector<const float *> rows() const {
        std::vector<const float *> result;
        result.reserve(rows_.size());
        for (const std::vector<float> & row : rows_)
            result.push_back(row.data());
        return result;
    }

private:
    const RasterData & raster_;
    double scaling_;
    std::vector<double> values_;
    std::vector<std::vector<float>> rows_;
    unsigned next_ = 0;
};

} // namespace

MorphologicalParameters::MorphologicalParameters(const RasterData * raster, float scaling,
                                                 unsigned windowSize, float tolerance,
                                                 NBX::Progress * progress) {
    NBX_CHECK(raster, L"no raster data");
    if (!raster) return;
    for (NBX::SO<Raster> * result : {&coefficientX_, &coefficientY_, &slope_, &crossSectionCurvature_})
        *result = newRaster(raster->grid());
    compute(*raster, scaling, windowSize | 1, tolerance, progress);
    if (progress && progress->isCanceled())
        coefficientX_ = coefficientY_ = slope_ = crossSectionCurvature_ = nullptr;
}

void MorphologicalParameters::compute(const RasterData & raster, float scaling, unsigned windowSize,
                                      float tolerance, NBX::Progress * progress) {
    const QuadraticFit fit(windowSize);
    const unsigned width = raster.cellsX(), height = raster.cellsY();
    RowWindow window(raster, scaling, fit.windowSize());
    std::vector<QuadraticSurface> surfaces(width);
    for (unsigned read = 1; read <= height; ++read) {
        if (progress && !progress->update(progress->totalValue() * read / height)) return;
        window.goNorth();
        if (read < fit.windowSize()) continue;
        const std::size_t first = static_cast<std::size_t>(read - 1 - fit.reach()) * width;
        fit.fitRow(window.rows().data(), width, raster.cellSizeX(), raster.cellSizeY(), surfaces.data());
        for (std::size_t i = 0; i < width; ++i) {
            const QuadraticSurface & surface = surfaces[i];
            const double slope = surface.slope();
            const bool isLevel = slope <= tolerance;
            coefficientX_->cells()[first + i] = static_cast<float>(surface.x);
            coefficientY_->cells()[first + i] = static_cast<float>(surface.y);
            slope_->cells()[first + i] = static_cast<float>(isLevel ? 0.0 : slope);
            crossSectionCurvature_->cells()[first + i] =
                static_cast<float>(isLevel ? 0.0 : surface.curvature(QuadraticSurface::C_CrossSection));
        }
    }
}

} // namespace ZMT::RASTER
