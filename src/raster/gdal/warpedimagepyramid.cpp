// The extent and the size of the finest level are those that GDAL suggests; each level of the source has one
// here. A request is transformed on a lattice of points to the pixels that it needs, a level is chosen so
// that these are not too many, and they are read and warped. No more than such a window is held.

#include <zmt/raster/gdal/warpedimagepyramid.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstdint>
#include <vector>

#include "gdalsupport.h"

#include <nbx/image/image.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>
#include <zmt/raster/pixelblocks.h>
#include <zmt/raster/tiledgeoimage.h>

namespace ZMT::RASTER {

NBX_STORED_CLASS_IMPL(WarpedImagePyramid, TiledGeoImagePyramid)

namespace {

/// Places of a rectangle that are transformed, along each side; it may bend between them.
constexpr int s_lattice = 16;
/// Source pixels read around those that are needed, for the filter.
constexpr double s_margin = 4.0;
/// So many source pixels are read for one of the result before a coarser level is taken.
constexpr double s_mostSourcePixels = 4.0;
constexpr double s_smallWindow = 512.0 * 512.0;

struct Size {
    unsigned width, height;
};

/// Pixels along the axes of an image with this extent, line 0 the southern one.
struct PixelGrid {
    double minX, minY, sizeX, sizeY;
    PixelGrid at(double x, double y) const { return {minX + x * sizeX, minY + y * sizeY, sizeX, sizeY}; }
};

GdalDataset datasetOf(const PixelGrid & grid, unsigned width, unsigned height, const std::string & wkt) {
    const double transform[6] = {grid.minX, grid.sizeX, 0.0, grid.minY, 0.0, grid.sizeY};
    return newMemoryDataset(width, height, transform, wkt);
}

PixelGrid gridOf(const TiledGeoImage & image) {
    return {image.minX(), image.minY(), image.pixelSizeX(), image.pixelSizeY()};
}

std::uint8_t * bytesOf(NBX::Image & image) {
    return static_cast<std::uint8_t *>(image.lineComponents(0));
}

NBX::SO<NBX::Image> newRgba(std::uint64_t width, std::uint64_t height) {
    return PixelBlocks::newImage(width, height, NBX::LS_RGBA, NBX::Image::UInt8);
}

} // namespace

struct WarpedImagePyramid::Impl {
    NBX::SO<TiledGeoImagePyramid> source;
    std::string from, to, path;
    std::vector<NBX::SO<TiledGeoImage>> sources; ///< the levels of `source`
    GdalTransformer transformer;                 ///< from pixels of its finest level to `to`
    GeoExtent extent;
    std::vector<Size> levels;
    std::atomic<bool> failed{false};

    void open();
    NBX::SO<NBX::Image> read(std::size_t level, const PixelRect & rect);
    NBX::SO<NBX::Image> warp(std::size_t level, const PixelRect & rect);
    PixelGrid grid(std::size_t level) const {
        return {extent.minX, extent.minY, (extent.maxX - extent.minX) / levels[level].width,
                (extent.maxY - extent.minY) / levels[level].height};
    }
    PixelWindow neededPixels(const PixelGrid & grid, const PixelRect & rect) const;
    PixelRect windowOf(std::size_t sourceLevel, const PixelWindow & finest) const;
};

class WarpedImagePyramid::Level : public TiledGeoImage {
    NBX_TEMPLATE_CLASS(Level, TiledGeoImage)
public:
    Level(std::shared_ptr<Impl> pyramid, std::size_t index)
        : pyramid_(std::move(pyramid)), index_(index), size_(pyramid_->levels[index]) {}

    unsigned bands() const override { return 4; }
    double minX() const override { return pyramid_->extent.minX; }
    double minY() const override { return pyramid_->extent.minY; }
    double pixelSizeX() const override { return pyramid_->grid(index_).sizeX; }
    double pixelSizeY() const override { return pyramid_->grid(index_).sizeY; }
    std::uint64_t pixelsX() const override { return size_.width; }
    std::uint64_t pixelsY() const override { return size_.height; }
    unsigned granularityX() const override {
        return std::min(pyramid_->sources[index_]->granularityX(), s_largestGranularity);
    }
    unsigned granularityY() const override {
        return std::min(pyramid_->sources[index_]->granularityY(), s_largestGranularity);
    }
    bool failed() const override { return pyramid_->failed; }
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;

private:
    std::shared_ptr<Impl> pyramid_;
    std::size_t index_;
    Size size_;
};

NBX::SO<NBX::Image> WarpedImagePyramid::Level::getImage(int x, int y, unsigned width, unsigned height) const {
    return PixelBlocks::readInside(*this, x, y, width, height,
                                   [&](const PixelRect & rect) { return pyramid_->read(index_, rect); });
}

void WarpedImagePyramid::Impl::open() {
    for (unsigned i = 0; i < source->overviews(); ++i)
        sources.push_back(source->overview(i));
    if (sources.empty()) return;
    GdalErrorTrap trap;
    const TiledGeoImage & finest = *sources[0];
    const auto fail = [&] {
        return NBX::InputException(L"cannot be brought into the wanted coordinate system; check the "
                                   L"coordinate system of the file",
                                   path, 0, trap.text());
    };
    if (finest.pixelsX() > INT_MAX || finest.pixelsY() > INT_MAX) throw fail();
    const GdalDataset dataset = datasetOf(gridOf(finest), static_cast<unsigned>(finest.pixelsX()),
                                          static_cast<unsigned>(finest.pixelsY()), from);
    transformer = newTransformer(*dataset, nullptr, to);
    double transform[6], box[4];
    int width = 0, height = 0;
    if (!transformer ||
        GDALSuggestedWarpOutput2(dataset.get(), GDALGenImgProjTransform, transformer.get(), transform, &width,
                                 &height, box, 0) != CE_None ||
        width < 1 || height < 1)
        throw fail();
    extent = {box[0], box[1], box[2], box[3]};
    for (const auto & level : sources) {
        const auto reduced = [](int all, std::uint64_t part, std::uint64_t whole) {
            const double share = static_cast<double>(part) / static_cast<double>(whole);
            return static_cast<unsigned>(std::max(1.0, std::round(all * share)));
        };
        levels.push_back({reduced(width, level->pixelsX(), finest.pixelsX()),
                          reduced(height, level->pixelsY(), finest.pixelsY())});
    }
}

/// The box of what a rectangle shows, in pixels of the source's finest level; empty where it shows nothing.
PixelWindow WarpedImagePyramid::Impl::neededPixels(const PixelGrid & grid, const PixelRect & rect) const {
    PixelWindow box = {HUGE_VAL, HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
    for (int j = 0; j <= s_lattice; ++j)
        for (int i = 0; i <= s_lattice; ++i) {
            double x = grid.minX + grid.sizeX * static_cast<double>(rect.width) * i / s_lattice;
            double y = grid.minY + grid.sizeY * static_cast<double>(rect.height) * j / s_lattice;
            double z = 0.0;
            int success = FALSE;
            GDALGenImgProjTransform(transformer.get(), TRUE, 1, &x, &y, &z, &success);
            if (!success || !std::isfinite(x) || !std::isfinite(y)) continue;
            box = {std::min(box.minX, x), std::min(box.minY, y), std::max(box.maxX, x),
                   std::max(box.maxY, y)};
        }
    const double bendX = (box.maxX - box.minX) / s_lattice, bendY = (box.maxY - box.minY) / s_lattice;
    return {box.minX - bendX, box.minY - bendY, box.maxX + bendX, box.maxY + bendY};
}

/// A window of the finest level, with a margin, in whole pixels of another one.
PixelRect WarpedImagePyramid::Impl::windowOf(std::size_t sourceLevel, const PixelWindow & finest) const {
    const auto range = [](double low, double high, std::uint64_t all, std::uint64_t pixels) {
        const double scale = static_cast<double>(pixels) / static_cast<double>(all);
        const auto most = static_cast<double>(pixels);
        const double first = std::clamp(std::floor(low * scale - s_margin), 0.0, most);
        const double end = std::clamp(std::ceil(high * scale + s_margin), first, most);
        return std::pair(static_cast<std::int64_t>(first), static_cast<std::uint64_t>(end - first));
    };
    if (!(finest.minX <= finest.maxX)) return {};
    const TiledGeoImage & whole = *sources[0];
    const TiledGeoImage & level = *sources[sourceLevel];
    const auto [x, width] = range(finest.minX, finest.maxX, whole.pixelsX(), level.pixelsX());
    const auto [y, height] = range(finest.minY, finest.maxY, whole.pixelsY(), level.pixelsY());
    return {x, y, width, height};
}

/// `rect` lies in the level.
NBX::SO<NBX::Image> WarpedImagePyramid::Impl::warp(std::size_t level, const PixelRect & rect) {
    const PixelGrid target = grid(level).at(static_cast<double>(rect.x), static_cast<double>(rect.y));
    const PixelWindow needed = neededPixels(target, rect);
    const auto area = [](const PixelRect & r) {
        return static_cast<double>(r.width) * static_cast<double>(r.height);
    };
    const double most = s_mostSourcePixels * area(rect) + s_smallWindow;
    std::size_t from = level;
    while (from + 1 < sources.size() && area(windowOf(from, needed)) > most)
        ++from;
    const PixelRect window = windowOf(from, needed);
    if (window.isEmpty()) return nullptr;
    const auto width = static_cast<unsigned>(window.width), height = static_cast<unsigned>(window.height);
    const NBX::SO<NBX::Image> stored =
        sources[from]->getImage(static_cast<int>(window.x), static_cast<int>(window.y), width, height);
    if (sources[from]->failed()) failed = true;
    const NBX::SO<NBX::Image> pixels = stored ? newRgba(width, height) : nullptr;
    NBX::SO<NBX::Image> result = newRgba(rect.width, rect.height);
    if (!pixels || !result || !pixels->copy(stored.get())) return nullptr;

    const PixelGrid corner =
        gridOf(*sources[from]).at(static_cast<double>(window.x), static_cast<double>(window.y));
    const GdalDataset input = datasetOf(corner, width, height, this->from);
    const GdalDataset output =
        datasetOf(target, static_cast<unsigned>(rect.width), static_cast<unsigned>(rect.height), to);
    addRgbaBands(*input, bytesOf(*pixels));
    addRgbaBands(*output, bytesOf(*result));
    warpBilinear(*input, *output, true, path, nullptr);
    return result;
}

NBX::SO<NBX::Image> WarpedImagePyramid::Impl::read(std::size_t level, const PixelRect & rect) {
    GdalErrorTrap trap;
    try {
        return warp(level, rect);
    } catch (const NBX::Exception & reason) {
        if (!failed.exchange(true)) NBX_FAILURE(NBX::StringUtils::Utf8String2WString(reason.what()));
        return nullptr;
    }
}

WarpedImagePyramid::WarpedImagePyramid() : impl_(std::make_shared<Impl>()) {}

WarpedImagePyramid::~WarpedImagePyramid() = default;

NBX::SO<TiledGeoImagePyramid> WarpedImagePyramid::create(const NBX::SO<TiledGeoImagePyramid> & pyramid,
                                                         const std::string & from, const std::string & to,
                                                         const std::string & path) {
    NBX_CHECK(pyramid, L"no image");
    if (!pyramid || from.empty() || to.empty()) return pyramid;
    GdalErrorTrap trap;
    if (isSameSystem(spatialReference(from), spatialReference(to))) return pyramid;
    const NBX::SO<WarpedImagePyramid> result(new WarpedImagePyramid);
    result->impl_->source = pyramid;
    result->impl_->from = from;
    result->impl_->to = to;
    result->impl_->path = path;
    result->impl_->open();
    return result;
}

double WarpedImagePyramid::minX() const {
    return impl_->extent.minX;
}

double WarpedImagePyramid::minY() const {
    return impl_->extent.minY;
}

double WarpedImagePyramid::maxX() const {
    return impl_->extent.maxX;
}

double WarpedImagePyramid::maxY() const {
    return impl_->extent.maxY;
}

unsigned WarpedImagePyramid::overviews() const {
    return static_cast<unsigned>(impl_->levels.size());
}

NBX::SO<TiledGeoImage> WarpedImagePyramid::overview(unsigned index) const {
    NBX_CHECK(index < impl_->levels.size(), L"no such level: " << index);
    return index < impl_->levels.size() ? new Level(impl_, index) : nullptr;
}

void WarpedImagePyramid::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TiledGeoImagePyramid>(m, this);
    NBX::SO<TiledGeoImagePyramid> source = impl_->source;
    std::wstring from = NBX::StringUtils::Utf8String2WString(impl_->from);
    std::wstring to = NBX::StringUtils::Utf8String2WString(impl_->to);
    m.attribute("source", source);
    attributeWithDefault(m, "from", from, std::wstring());
    attributeWithDefault(m, "to", to, std::wstring());
    if (!m.isReading()) return;
    impl_ = std::make_shared<Impl>();
    impl_->source = source;
    impl_->from = NBX::StringUtils::WString2Utf8String(from);
    impl_->to = NBX::StringUtils::WString2Utf8String(to);
    if (!source) return;
    try {
        impl_->open();
    } catch (const NBX::Exception & reason) {
        impl_->levels.clear();
        NBX_FAILURE(NBX::StringUtils::Utf8String2WString(reason.what()));
    }
}

} // namespace ZMT::RASTER
