// GDAL's generator of contours (marching squares, by segments that are joined) is fed row by row, the
// southern one first; its lines go into a file in memory that has an index of their places.

#include <zmt/raster/gdal/vector/contourlines.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <cpl_string.h>
#include <ogrsf_frmts.h>

#include <zmt/raster/gdal/vector/featurefile.h>
#include <zmt/raster/rasterdata.h>

#include "memoryfile.h"
#include "raster/gdal/gdalsupport.h"

#include <nbx/data/memorydataresource.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

namespace ZMT::RASTER {

namespace {

constexpr const char * s_contourName = "contour lines";

[[noreturn]] void failContours(const std::wstring & why) {
    throw NBX::InputException(why, s_contourName);
}

/// Of the defined heights; empty without any.
struct HeightRange {
    double low = std::numeric_limits<double>::infinity(), high = -low;
};

HeightRange rangeOf(const RasterData & heights) {
    HeightRange range;
    std::vector<double> row(heights.cellsX());
    for (unsigned y = 0; y < heights.cellsY(); ++y) {
        heights.valueRow(y, row.data());
        for (const double height : row) {
            if (heights.isUndefValue(height) || !std::isfinite(height)) continue;
            range.low = std::min(range.low, height);
            range.high = std::max(range.high, height);
        }
    }
    return range;
}

/// Takes the lines of the generator.
class ContourLayer {
public:
    ContourLayer(const MemoryFile & file, const RasterGrid & grid, double interval)
        : grid_(grid), interval_(interval) {
        GDALDriver * driver = GetGDALDriverManager()->GetDriverByName("FlatGeobuf");
        if (driver) dataset_.reset(driver->Create(file.path().c_str(), 0, 0, 0, GDT_Unknown, nullptr));
        if (dataset_) layer_ = dataset_->CreateLayer("contours", nullptr, wkbLineString, nullptr);
        OGRFieldDefn height("height", OFTReal), kind("kind", OFTString);
        if (!layer_ || layer_->CreateField(&height) != OGRERR_NONE ||
            layer_->CreateField(&kind) != OGRERR_NONE)
            failContours(L"cannot be stored: " + trap_.text());
    }

    /// For the generator: `x` and `y` are in pixels, whose middles lie at halves.
    static CPLErr take(double level, int count, double * x, double * y, void * self) {
        return static_cast<ContourLayer *>(self)->add(level, count, x, y);
    }
    std::uint64_t lines() const { return lines_; }
    /// The file is complete then.
    void finish() {
        dataset_.reset();
        if (trap_.failed()) failContours(L"cannot be stored: " + trap_.text());
    }

private:
    CPLErr add(double level, int count, const double * x, const double * y) {
        if (count < 2) return CE_None;
        const double number = std::round(level / interval_);
        const bool isIndex = std::fmod(number, ContourLines::s_indexEvery) == 0.0;
        OGRFeature feature(layer_->GetLayerDefn());
        // The generator adds up intervals.
        feature.SetField(0, number * interval_);
        feature.SetField(1, isIndex ? "index" : "plain");
        auto * line = new OGRLineString;
        feature.SetGeometryDirectly(line);
        line->setNumPoints(count);
        for (int i = 0; i < count; ++i)
            line->setPoint(i, grid_.minX + (x[i] - 0.5) * grid_.cellSizeX,
                           grid_.minY + (y[i] - 0.5) * grid_.cellSizeY);
        ++lines_;
        return layer_->CreateFeature(&feature) == OGRERR_NONE ? CE_None : CE_Failure;
    }

    GdalErrorTrap trap_;
    const RasterGrid grid_;
    const double interval_;
    GdalDataset dataset_;
    OGRLayer * layer_ = nullptr;
    std::uint64_t lines_ = 0;
};

/// Ends with the object, which gives its last lines.
class ContourGenerator {
public:
    ContourGenerator(const RasterGrid & grid, double interval, ContourLayer & layer)
        : generator_(GDAL_CG_Create(static_cast<int>(grid.cellsX), static_cast<int>(grid.cellsY), FALSE, 0.0,
                                    interval, 0.0, ContourLayer::take, &layer)) {}
    ~ContourGenerator() {
        if (generator_) GDAL_CG_Destroy(generator_);
    }
    ContourGenerator(const ContourGenerator &) = delete;
    ContourGenerator & operator=(const ContourGenerator &) = delete;

    bool feed(std::vector<double> & row) {
        return generator_ && GDAL_CG_FeedLine(generator_, row.data()) == CE_None;
    }

private:
    GDALContourGeneratorH generator_;
};

/// False after a cancel.
bool drawContours(const RasterData & heights, double interval, ContourLayer & layer,
                  NBX::Progress * progress) {
    ContourGenerator generator(heights.grid(), interval, layer);
    std::vector<double> row(heights.cellsX());
    for (unsigned y = 0; y < heights.cellsY(); ++y) {
        if (progress && !progress->update(progress->totalValue() * y / heights.cellsY())) return false;
        heights.valueRow(y, row.data());
        for (double & height : row)
            if (heights.isUndefValue(height)) height = std::numeric_limits<double>::quiet_NaN();
        if (!generator.feed(row)) failContours(L"cannot be drawn: the memory does not suffice");
    }
    return true;
}

} // namespace

std::shared_ptr<const FeatureSource> ContourLines::create(const RasterData & heights, double interval,
                                                          NBX::Progress * progress) {
    if (!(interval > 0.0) || !std::isfinite(interval))
        failContours(L"need an interval above 0 from one to the next");
    const HeightRange range = rangeOf(heights);
    if ((range.high - range.low) / interval > s_mostLevels)
        failContours(L"would be more than 20000, one above the other; give a larger interval");
    const MemoryFile file("fgb");
    {
        ContourLayer layer(file, heights.grid(), interval);
        if (!drawContours(heights, interval, layer, progress)) return nullptr;
        if (layer.lines() == 0)
            failContours(L"would be none, as no multiple of the interval lies among the heights; give a "
                         L"smaller one");
        layer.finish();
    }
    const auto bytes = file.bytes();
    if (bytes.size() > std::numeric_limits<unsigned>::max())
        failContours(L"take more than 4 GiB; give a larger interval");
    const NBX::SO<NBX::DataResource> data(
        new NBX::MemoryDataResource(bytes.data(), static_cast<unsigned>(bytes.size())));
    return std::make_shared<const FeatureFile>(data, "contours.fgb");
}

} // namespace ZMT::RASTER
