// One grid of pixels for each level. A rectangle of it is asked of each image, from the lowest on: from its
// coarsest level whose pixels are not larger, averaged, or, where it has none so fine, interpolated between
// the centres of those that it has. Colours are blended by their alpha.

#include <zmt/raster/layeredimagepyramid.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <zmt/raster/geoextent.h>
#include <zmt/raster/pixelblocks.h>
#include <zmt/raster/tiledgeoimage.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(LayeredImagePyramid, TiledGeoImagePyramid)

namespace {

using NBX::Image;
using NBX::SO;

/// Numbers of pixels that differ by less are the same, and sizes of pixels by this share.
constexpr double s_tolerance = 1e-6;
/// Between images that meet, as a share of a pixel.
constexpr double s_gap = 1e-3;
constexpr int s_opaque = 255;

struct LevelSize {
    unsigned width, height;
};

/// Pixels along one axis, from `first` to in front of `end`.
struct Stretch {
    std::int64_t first, end;
    bool isEmpty() const { return first >= end; }
    unsigned count() const { return static_cast<unsigned>(end - first); }
};

/// Of the pixels `wanted` along an axis those whose centres lie between `low` and `high`.
Stretch pixelsBetween(double low, double high, double min, double size, const Stretch & wanted) {
    const auto nextCentre = [&](double edge) {
        const double pixel = std::ceil((edge - min) / size - 0.5 - s_tolerance);
        return static_cast<std::int64_t>(
            std::clamp(pixel, static_cast<double>(wanted.first), static_cast<double>(wanted.end)));
    };
    return {nextCentre(low), nextCentre(high)};
}

double snapped(double pixel) {
    const double whole = std::round(pixel);
    return std::abs(pixel - whole) <= s_tolerance ? whole : pixel;
}

SO<Image> rgbaOf(const SO<Image> & image) {
    if (!image || (image->layerSequence() == NBX::LS_RGBA && image->dataType() == Image::UInt8)) return image;
    SO<Image> result(new NBX::MemoryImage(image->width(), image->height(), NBX::LS_RGBA));
    return result->copy(image.get()) ? result : nullptr;
}

/// Two pixels of a line or a column, and the share of the second one.
struct Neighbours {
    int low, high;
    float share;
};

/// Those around `place`, where the centre of pixel i is i + 0.5.
Neighbours around(double place, int size) {
    const double at = std::clamp(place - 0.5, 0.0, size - 1.0);
    const int low = std::min(static_cast<int>(at), size - 1);
    return {low, std::min(low + 1, size - 1), static_cast<float>(at - low)};
}

/// Of RGBA, between the centres of four pixels; colours are weighted by alpha.
void interpolate(const Image & source, const Neighbours & x, const Neighbours & y, std::uint8_t * target) {
    float sum[4] = {};
    const auto add = [&](int column, int row, float share) {
        const std::uint8_t * pixel = source.lineComponentsU8(row) + 4 * static_cast<std::ptrdiff_t>(column);
        const float alpha = share * static_cast<float>(pixel[3]);
        for (int i = 0; i < 3; ++i)
            sum[i] += alpha * static_cast<float>(pixel[i]);
        sum[3] += alpha;
    };
    add(x.low, y.low, (1.0F - x.share) * (1.0F - y.share));
    add(x.high, y.low, x.share * (1.0F - y.share));
    add(x.low, y.high, (1.0F - x.share) * y.share);
    add(x.high, y.high, x.share * y.share);
    for (int i = 0; i < 3; ++i)
        target[i] = sum[3] > 0.0F ? static_cast<std::uint8_t>(sum[i] / sum[3] + 0.5F) : 0;
    target[3] = static_cast<std::uint8_t>(sum[3] + 0.5F);
}

/// The `window` of `source` with more pixels than it has there, interpolated.
SO<Image> magnified(const TiledGeoImage & source, const PixelWindow & window, unsigned width,
                    unsigned height) {
    const auto range = [](double low, double high, std::uint64_t pixels) {
        const auto most = static_cast<double>(pixels);
        return Stretch{static_cast<std::int64_t>(std::clamp(std::floor(low - 0.5), 0.0, most - 1.0)),
                       static_cast<std::int64_t>(std::clamp(std::ceil(high + 0.5), 1.0, most))};
    };
    const Stretch columns = range(window.minX, window.maxX, source.pixelsX());
    const Stretch rows = range(window.minY, window.maxY, source.pixelsY());
    const SO<Image> pixels = rgbaOf(source.getImage(
        static_cast<int>(columns.first), static_cast<int>(rows.first), columns.count(), rows.count()));
    SO<Image> result = PixelBlocks::newImage(width, height, NBX::LS_RGBA, Image::UInt8);
    if (!pixels || !result) return nullptr;
    const double stepX = (window.maxX - window.minX) / width, stepY = (window.maxY - window.minY) / height;
    for (unsigned y = 0; y < height; ++y) {
        const Neighbours row =
            around(window.minY + (y + 0.5) * stepY - static_cast<double>(rows.first), pixels->height());
        std::uint8_t * target = result->lineComponentsU8(static_cast<int>(y));
        for (unsigned x = 0; x < width; ++x, target += 4)
            interpolate(
                *pixels,
                around(window.minX + (x + 0.5) * stepX - static_cast<double>(columns.first), pixels->width()),
                row, target);
    }
    return result;
}

/// Lays a pixel of RGBA above another one.
void blend(const std::uint8_t * above, std::uint8_t * below) {
    const int alpha = above[3];
    if (alpha == s_opaque) {
        std::copy_n(above, 4, below);
        return;
    }
    const int rest = below[3] * (s_opaque - alpha), all = alpha * s_opaque + rest;
    if (alpha == 0) return;
    for (int i = 0; i < 3; ++i)
        below[i] = static_cast<std::uint8_t>((above[i] * alpha * s_opaque + below[i] * rest + all / 2) / all);
    below[3] = static_cast<std::uint8_t>((all + s_opaque / 2) / s_opaque);
}

void layAbove(const Image & above, int x, int y, Image & below) {
    for (int line = 0; line < above.height(); ++line) {
        const std::uint8_t * from = above.lineComponentsU8(line);
        std::uint8_t * to = below.lineComponentsU8(y + line) + 4 * static_cast<std::ptrdiff_t>(x);
        for (int i = 0; i < above.width(); ++i, from += 4, to += 4)
            blend(from, to);
    }
}

/// The levels of one image, the finest first.
struct Layer {
    SO<TiledGeoImagePyramid> pyramid;
    std::vector<SO<TiledGeoImage>> levels;

    bool failed() const {
        return std::any_of(levels.begin(), levels.end(), [](const auto & level) { return level->failed(); });
    }
    /// The coarsest whose pixels are not larger.
    const TiledGeoImage & levelFor(double sizeX, double sizeY) const {
        std::size_t level = 0;
        const auto fits = [&](const TiledGeoImage & image) {
            return image.pixelSizeX() <= sizeX * (1.0 + s_tolerance) &&
                   image.pixelSizeY() <= sizeY * (1.0 + s_tolerance);
        };
        while (level + 1 < levels.size() && fits(*levels[level + 1]))
            ++level;
        return *levels[level];
    }
};

/// Edges of boxes along one axis, in their order, and those of all at both ends.
std::vector<double> edgesOf(const std::vector<GeoExtent> & boxes, double GeoExtent::*low,
                            double GeoExtent::*high, const GeoExtent & all) {
    std::vector<double> edges = {all.*low, all.*high};
    for (const GeoExtent & box : boxes)
        edges.insert(edges.end(), {box.*low, box.*high});
    std::sort(edges.begin(), edges.end());
    return edges;
}

/// Whether boxes leave nothing of `all` free that is wider than a small share of a pixel.
bool cover(const std::vector<GeoExtent> & boxes, const GeoExtent & all, double pixelX, double pixelY) {
    const std::vector<double> columns = edgesOf(boxes, &GeoExtent::minX, &GeoExtent::maxX, all);
    const std::vector<double> rows = edgesOf(boxes, &GeoExtent::minY, &GeoExtent::maxY, all);
    for (std::size_t i = 0; i + 1 < columns.size(); ++i)
        for (std::size_t j = 0; j + 1 < rows.size(); ++j) {
            const bool isSliver =
                columns[i + 1] - columns[i] <= s_gap * pixelX || rows[j + 1] - rows[j] <= s_gap * pixelY;
            const double x = 0.5 * (columns[i] + columns[i + 1]), y = 0.5 * (rows[j] + rows[j + 1]);
            const auto covers = [&](const GeoExtent & box) {
                return box.minX < x && x < box.maxX && box.minY < y && y < box.maxY;
            };
            if (!isSliver && std::none_of(boxes.begin(), boxes.end(), covers)) return false;
        }
    return true;
}

} // namespace

struct LayeredImagePyramid::Impl {
    std::vector<Layer> layers; ///< the lowest first
    GeoExtent extent;
    std::vector<LevelSize> levels;
    NBX::LayerSequence format = NBX::LS_RGBA;

    void add(const SO<TiledGeoImagePyramid> & pyramid);
    void findLevels();
    void findFormat();
    double sizeX(std::size_t level) const { return (extent.maxX - extent.minX) / levels[level].width; }
    double sizeY(std::size_t level) const { return (extent.maxY - extent.minY) / levels[level].height; }
    /// Inside the level.
    SO<Image> read(std::size_t level, const PixelRect & rect) const;
    bool lay(const Layer & layer, std::size_t level, const PixelRect & rect, Image & target) const;
};

/// One level; it keeps the images.
class LayeredImagePyramid::Level : public TiledGeoImage {
    NBX_TEMPLATE_CLASS(Level, TiledGeoImage)
public:
    Level(std::shared_ptr<const Impl> pyramid, std::size_t index)
        : pyramid_(std::move(pyramid)), index_(index), size_(pyramid_->levels[index]) {}

    unsigned bands() const override { return static_cast<unsigned>(Image::numberOfLayers(pyramid_->format)); }
    double minX() const override { return pyramid_->extent.minX; }
    double minY() const override { return pyramid_->extent.minY; }
    double pixelSizeX() const override { return pyramid_->sizeX(index_); }
    double pixelSizeY() const override { return pyramid_->sizeY(index_); }
    std::uint64_t pixelsX() const override { return size_.width; }
    std::uint64_t pixelsY() const override { return size_.height; }
    SO<Image> createEmptyImage(unsigned width, unsigned height) const override {
        return PixelBlocks::newImage(width, height, pyramid_->format, Image::UInt8);
    }
    bool failed() const override {
        return std::any_of(pyramid_->layers.begin(), pyramid_->layers.end(),
                           [](const Layer & layer) { return layer.failed(); });
    }
    SO<Image> getImage(int x, int y, unsigned width, unsigned height) const override {
        return PixelBlocks::readInside(*this, x, y, width, height,
                                       [&](const PixelRect & rect) { return pyramid_->read(index_, rect); });
    }

private:
    std::shared_ptr<const Impl> pyramid_;
    std::size_t index_;
    LevelSize size_;
};

void LayeredImagePyramid::Impl::add(const SO<TiledGeoImagePyramid> & pyramid) {
    NBX_CHECK(pyramid, L"no image");
    Layer layer{pyramid, {}};
    for (unsigned i = 0; pyramid && i < pyramid->overviews(); ++i)
        if (const SO<TiledGeoImage> level = pyramid->overview(i)) layer.levels.push_back(level);
    if (!layer.levels.empty()) layers.push_back(layer);
}

void LayeredImagePyramid::Impl::findLevels() {
    if (layers.empty()) return;
    const TiledGeoImage * finest = layers.front().levels.front().get();
    extent = finest->extent();
    for (const Layer & layer : layers) {
        const TiledGeoImage & image = *layer.levels.front();
        if (image.pixelSizeX() * image.pixelSizeY() < finest->pixelSizeX() * finest->pixelSizeY())
            finest = &image;
        const GeoExtent box = image.extent();
        extent = {std::min(extent.minX, box.minX), std::min(extent.minY, box.minY),
                  std::max(extent.maxX, box.maxX), std::max(extent.maxY, box.maxY)};
    }
    // To whole pixels of the finest image.
    const auto align = [](double & low, double & high, double first, double size) {
        const double before = std::ceil((first - low) / size - s_tolerance);
        low = first - before * size;
        const double pixels = std::ceil((high - low) / size - s_tolerance);
        high = low + pixels * size;
        return pixels;
    };
    const double width = align(extent.minX, extent.maxX, finest->minX(), finest->pixelSizeX());
    const double height = align(extent.minY, extent.maxY, finest->minY(), finest->pixelSizeY());
    constexpr double most = std::numeric_limits<int>::max();
    if (!(width >= 1.0 && width <= most && height >= 1.0 && height <= most)) return;
    LevelSize size{static_cast<unsigned>(width), static_cast<unsigned>(height)};
    levels.push_back(size);
    while (size.width > 1 || size.height > 1) {
        size = {PixelBlocks::halved(size.width), PixelBlocks::halved(size.height)};
        levels.push_back(size);
    }
}

/// Without alpha where the images have none and leave nothing free.
void LayeredImagePyramid::Impl::findFormat() {
    if (levels.empty()) return;
    std::vector<GeoExtent> boxes;
    bool isGrey = true;
    for (const Layer & layer : layers) {
        const SO<Image> pixel = layer.levels.front()->createEmptyImage(1, 1);
        const bool isLuminance = pixel && pixel->layerSequence() == NBX::LS_Luminance;
        if (!isLuminance && !(pixel && pixel->layerSequence() == NBX::LS_RGB)) return;
        isGrey = isGrey && isLuminance && pixel->dataType() == Image::UInt8;
        boxes.push_back(layer.levels.front()->extent());
    }
    if (cover(boxes, extent, sizeX(0), sizeY(0))) format = isGrey ? NBX::LS_Luminance : NBX::LS_RGB;
}

/// False where there is nothing of the image.
bool LayeredImagePyramid::Impl::lay(const Layer & layer, std::size_t level, const PixelRect & rect,
                                    Image & target) const {
    const double pixelX = sizeX(level), pixelY = sizeY(level);
    const TiledGeoImage & image = layer.levelFor(pixelX, pixelY);
    const GeoExtent box = image.extent();
    const Stretch columns = pixelsBetween(box.minX, box.maxX, extent.minX, pixelX,
                                          {rect.x, rect.x + static_cast<std::int64_t>(rect.width)});
    const Stretch rows = pixelsBetween(box.minY, box.maxY, extent.minY, pixelY,
                                       {rect.y, rect.y + static_cast<std::int64_t>(rect.height)});
    if (columns.isEmpty() || rows.isEmpty()) return false;
    const auto toImage = [](std::int64_t pixel, double min, double size, double imageMin, double imageSize) {
        return snapped((min - imageMin + static_cast<double>(pixel) * size) / imageSize);
    };
    const PixelWindow window = {toImage(columns.first, extent.minX, pixelX, image.minX(), image.pixelSizeX()),
                                toImage(rows.first, extent.minY, pixelY, image.minY(), image.pixelSizeY()),
                                toImage(columns.end, extent.minX, pixelX, image.minX(), image.pixelSizeX()),
                                toImage(rows.end, extent.minY, pixelY, image.minY(), image.pixelSizeY())};
    const bool isCoarser = image.pixelSizeX() > pixelX * (1.0 + s_tolerance) ||
                           image.pixelSizeY() > pixelY * (1.0 + s_tolerance);
    const SO<Image> pixels = isCoarser
                                 ? magnified(image, window, columns.count(), rows.count())
                                 : rgbaOf(PixelBlocks::read(image, window, columns.count(), rows.count()));
    if (!pixels) return false;
    layAbove(*pixels, static_cast<int>(columns.first - rect.x), static_cast<int>(rows.first - rect.y),
             target);
    return true;
}

SO<Image> LayeredImagePyramid::Impl::read(std::size_t level, const PixelRect & rect) const {
    SO<Image> result = PixelBlocks::newImage(rect.width, rect.height, NBX::LS_RGBA, Image::UInt8);
    if (!result) return nullptr;
    bool isThere = false;
    for (const Layer & layer : layers) {
        isThere = lay(layer, level, rect, *result) || isThere;
        if (layer.failed()) return nullptr;
    }
    if (!isThere || format == NBX::LS_RGBA) return isThere ? result : nullptr;
    SO<Image> opaque = PixelBlocks::newImage(rect.width, rect.height, format, Image::UInt8);
    return opaque && opaque->copy(result.get()) ? opaque : nullptr;
}

LayeredImagePyramid::LayeredImagePyramid(const Layers & layers) {
    const auto impl = std::make_shared<Impl>();
    for (const SO<TiledGeoImagePyramid> & layer : layers)
        impl->add(layer);
    impl->findLevels();
    impl->findFormat();
    impl_ = impl;
}

LayeredImagePyramid::~LayeredImagePyramid() = default;

double LayeredImagePyramid::minX() const {
    return impl_->extent.minX;
}

double LayeredImagePyramid::minY() const {
    return impl_->extent.minY;
}

double LayeredImagePyramid::maxX() const {
    return impl_->extent.maxX;
}

double LayeredImagePyramid::maxY() const {
    return impl_->extent.maxY;
}

unsigned LayeredImagePyramid::overviews() const {
    return static_cast<unsigned>(impl_->levels.size());
}

SO<TiledGeoImage> LayeredImagePyramid::overview(unsigned index) const {
    NBX_CHECK(index < impl_->levels.size(), L"no such level: " << index);
    return index < impl_->levels.size() ? new Level(impl_, index) : nullptr;
}

} // namespace ZMT::RASTER
