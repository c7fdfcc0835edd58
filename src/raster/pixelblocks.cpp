// Averages over areas, weighted by alpha where there is one: spans of weights for each axis, rows first, then
// columns, with a shorter way for exact halves of bytes. Large windows are read in pieces of about a million
// pixels, so that memory does not grow with the image.

#include <zmt/raster/pixelblocks.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "nbx/image/boxfilter.h"
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <zmt/raster/tiledgeoimage.h>

namespace ZMT::RASTER {

namespace {

/// Pixels that are read at once.
constexpr double pieceSide = 1024.0;
constexpr double piecePixels = pieceSide * pieceSide;

bool sameFormat(const NBX::Image & a, const NBX::Image & b) {
    return a.layerSequence() == b.layerSequence() && a.dataType() == b.dataType();
}

int bytesPerPixel(const NBX::Image & image) {
    return image.bitsPerPixel() / 8;
}

/// Index of the layer that is alpha and has others to weigh; -1 without one.
int alphaLayer(const NBX::Image & image) {
    switch (image.layerSequence()) {
    case NBX::LS_LuminanceAlpha:
        return 1;
    case NBX::LS_RGBA:
    case NBX::LS_BGRA:
        return 3;
    default:
        return -1;
    }
}

/// The source pixels along one axis that make up one target pixel.
struct Span {
    int first = 0;
    std::vector<float> weights; ///< their sum is 1
};

std::vector<Span> spans(double low, double high, int count, int sourceSize) {
    std::vector<Span> result(static_cast<std::size_t>(count));
    const double step = (high - low) / count;
    for (int i = 0; i < count; ++i) {
        // The sum may lie a rounding beyond a pixel's edge.
        const double slack = 1e-9 * std::max(1.0, std::abs(low) + std::abs(high));
        const double from = std::clamp(low + i * step, 0.0, static_cast<double>(sourceSize));
        const double to = std::clamp(low + (i + 1) * step, 0.0, static_cast<double>(sourceSize));
        Span & span = result[static_cast<std::size_t>(i)];
        span.first = std::clamp(static_cast<int>(std::floor(from + slack)), 0, sourceSize - 1);
        const int end = std::clamp(static_cast<int>(std::ceil(to - slack)), span.first + 1, sourceSize);
        double sum = 0.0;
        for (int k = span.first; k < end; ++k) {
            const double share = std::max(std::min(to, k + 1.0) - std::max(from, k + 0.0), 0.0);
            span.weights.push_back(static_cast<float>(share));
            sum += share;
        }
        if (sum <= 0.0) {
            span.weights.assign(1, 1.0F);
            sum = 1.0;
        }
        for (float & weight : span.weights)
            weight = static_cast<float>(weight / sum);
    }
    return result;
}

template <class T> T rounded(float value) {
    if constexpr (std::is_floating_point_v<T>)
        return value;
    else
        return static_cast<T>(value + 0.5F);
}

/// Averages by rows first, then by columns.
template <class T> class Averager {
public:
    Averager(const NBX::Image & source, const PixelWindow & window, int width, int height)
        : source_(source), layers_(source.numberOfLayers()), alpha_(alphaLayer(source)),
          columns_(spans(window.minX, window.maxX, width, source.width())),
          rows_(spans(window.minY, window.maxY, height, source.height())) {
        firstColumn_ = columns_.front().first;
        const Span & last = columns_.back();
        const int end = last.first + static_cast<int>(last.weights.size());
        sums_.resize(static_cast<std::size_t>(end - firstColumn_) * static_cast<std::size_t>(layers_));
    }

    void line(int row, T * target) {
        std::fill(sums_.begin(), sums_.end(), 0.0F);
        const Span & span = rows_[static_cast<std::size_t>(row)];
        for (std::size_t k = 0; k < span.weights.size(); ++k)
            addLine(static_cast<const T *>(source_.lineComponents(span.first + static_cast<int>(k))),
                    span.weights[k]);
        for (const Span & column : columns_) {
            mix(column, target);
            target += layers_;
        }
    }

private:
    void addLine(const T * line, float weight) {
        line += static_cast<std::ptrdiff_t>(firstColumn_) * layers_;
        if (alpha_ < 0) {
            for (std::size_t i = 0; i < sums_.size(); ++i)
                sums_[i] += weight * static_cast<float>(line[i]);
            return;
        }
        const auto layers = static_cast<std::size_t>(layers_), alpha = static_cast<std::size_t>(alpha_);
        for (std::size_t i = 0; i < sums_.size(); i += layers) {
            const float a = weight * static_cast<float>(line[i + alpha]);
            for (std::size_t l = 0; l < layers; ++l)
                sums_[i + l] += l == alpha ? a : a * static_cast<float>(line[i + l]);
        }
    }

    void mix(const Span & column, T * target) const {
        float result[4] = {};
        const float * sum = sums_.data() + static_cast<std::ptrdiff_t>(column.first - firstColumn_) * layers_;
        for (float weight : column.weights)
            for (int l = 0; l < layers_; ++l)
                result[l] += weight * *sum++;
        const float opacity = alpha_ < 0 ? 1.0F : result[alpha_];
        for (int l = 0; l < layers_; ++l)
            target[l] = l == alpha_      ? rounded<T>(opacity)
                        : opacity > 0.0F ? rounded<T>(result[l] / opacity)
                                         : T(0);
    }

    const NBX::Image & source_;
    int layers_, alpha_, firstColumn_ = 0;
    std::vector<Span> columns_, rows_;
    std::vector<float> sums_;
};

/// Averages of 2 by 2 pixels with alpha. Unlike the box filter of the engine's images, which takes every
/// layer by itself, colours are weighted by alpha: levels of a pyramid lie above others.
void halveWeighted(const std::uint8_t * low, const std::uint8_t * high, std::uint8_t * target, int width,
                   int layers, int alpha) {
    const std::ptrdiff_t pair = 2 * std::ptrdiff_t(layers);
    for (int x = 0; x < width; ++x, low += pair, high += pair, target += layers) {
        const std::uint8_t * pixels[4] = {low, low + layers, high, high + layers};
        unsigned opacity = 0;
        for (const std::uint8_t * pixel : pixels)
            opacity += pixel[alpha];
        if (opacity == 4 * 255) {
            NBX::halveLine(layers, low, high, static_cast<std::size_t>(layers), target, 1);
            continue;
        }
        target[alpha] = static_cast<std::uint8_t>((opacity + 2) / 4);
        for (int l = 0; l < layers; ++l) {
            if (l == alpha) continue;
            unsigned sum = opacity / 2;
            for (const std::uint8_t * pixel : pixels)
                sum += static_cast<unsigned>(pixel[l]) * pixel[alpha];
            target[l] = opacity ? static_cast<std::uint8_t>(sum / opacity) : 0;
        }
    }
}

/// Most levels of a pyramid are made this way.
bool isHalving(const NBX::Image & source, const PixelWindow & w, int width, int height) {
    return source.dataType() == NBX::Image::UInt8 && w.minX == std::floor(w.minX) &&
           w.minY == std::floor(w.minY) && w.maxX - w.minX == 2.0 * width &&
           w.maxY - w.minY == 2.0 * height && w.minX >= 0.0 && w.minY >= 0.0 && w.maxX <= source.width() &&
           w.maxY <= source.height();
}

void halve(const NBX::Image & source, const PixelWindow & window, NBX::Image & target, int x, int y,
           int width, int height) {
    const int layers = source.numberOfLayers(), alpha = alphaLayer(source);
    const std::ptrdiff_t offset = static_cast<std::ptrdiff_t>(window.minX) * layers;
    for (int row = 0; row < height; ++row) {
        const int below = static_cast<int>(window.minY) + 2 * row;
        const std::uint8_t * low = source.lineComponentsU8(below) + offset;
        const std::uint8_t * high = source.lineComponentsU8(below + 1) + offset;
        std::uint8_t * to = target.lineComponentsU8(y + row) + static_cast<std::ptrdiff_t>(x) * layers;
        if (alpha < 0)
            NBX::halveLine(layers, low, high, static_cast<std::size_t>(layers), to, width);
        else
            halveWeighted(low, high, to, width, layers, alpha);
    }
}

template <class T>
void average(const NBX::Image & source, const PixelWindow & window, NBX::Image & target, int x, int y,
             int width, int height) {
    Averager<T> averager(source, window, width, height);
    for (int row = 0; row < height; ++row)
        averager.line(row, static_cast<T *>(target.lineComponents(y + row)) +
                               static_cast<std::ptrdiff_t>(x) * target.numberOfLayers());
}

/// Numbers of 16 bits are averaged as those of 32 bits.
void averageHalf(const NBX::Image & source, const PixelWindow & window, NBX::Image & target, int x, int y,
                 int width, int height) {
    NBX::MemoryImage from(source.width(), source.height(), source.layerSequence(), NBX::Image::Float);
    NBX::MemoryImage to(width, height, source.layerSequence(), NBX::Image::Float);
    const NBX::SO<NBX::MemoryImage> result(
        new NBX::MemoryImage(width, height, source.layerSequence(), NBX::Image::Half));
    from.copy(&source);
    average<float>(from, window, to, 0, 0, width, height);
    result->copy(&to);
    PixelBlocks::paste(*result, x, y, target);
}

/// How many pixels of the result are made from one piece, along each axis.
struct PieceSize {
    unsigned width, height;
};

PieceSize pieceSize(const TiledGeoImage & source, double stepX, double stepY, unsigned width,
                    unsigned height) {
    // Images that are stored in whole lines are read in whole lines.
    const double sourceWidth = std::max(pieceSide, static_cast<double>(source.granularityX()));
    const double sourceHeight = piecePixels / sourceWidth;
    const auto pixels = [](double sourceSize, double step, unsigned size) {
        return static_cast<unsigned>(std::clamp(std::floor(sourceSize / step), 1.0, size + 0.0));
    };
    return {pixels(sourceWidth, stepX, width), pixels(sourceHeight, stepY, height)};
}

/// Whole pixels of one axis, not too many.
struct WholePixels {
    std::int64_t first = 0;
    unsigned count = 0;
};

WholePixels wholePixels(double & low, double & high, double limit, std::uint64_t size) {
    if (high - low > limit) {
        low = std::floor(0.5 * (low + high - limit));
        high = low + limit;
    }
    const double first = std::clamp(std::floor(low + 1e-6), 0.0, static_cast<double>(size) - 1.0);
    const double end = std::clamp(std::ceil(high - 1e-6), first + 1.0, static_cast<double>(size));
    low -= first;
    high -= first;
    return {static_cast<std::int64_t>(first), static_cast<unsigned>(end - first)};
}

/// The part of a rectangle that lies in the image.
PixelRect inside(const TiledGeoImage & image, int x, int y, unsigned width, unsigned height) {
    const std::int64_t x0 = std::max(x, 0), y0 = std::max(y, 0);
    const std::int64_t x1 =
        std::min(x + static_cast<std::int64_t>(width), static_cast<std::int64_t>(image.pixelsX()));
    const std::int64_t y1 =
        std::min(y + static_cast<std::int64_t>(height), static_cast<std::int64_t>(image.pixelsY()));
    if (x0 >= x1 || y0 >= y1) return {};
    return {x0, y0, static_cast<std::uint64_t>(x1 - x0), static_cast<std::uint64_t>(y1 - y0)};
}

} // namespace

bool PixelBlocks::isImageSize(unsigned long long width, unsigned long long height, unsigned bytesPerPixel) {
    constexpr unsigned long long maxSide = INT32_MAX;
    return width > 0 && height > 0 && width <= maxSide && height <= maxSide &&
           width * height <= maxImageBytes / std::max(1u, bytesPerPixel);
}

NBX::SO<NBX::Image> PixelBlocks::newImage(unsigned long long width, unsigned long long height,
                                          NBX::LayerSequence layers, int dataType) {
    if (!isImageSize(width, height, static_cast<unsigned>(NBX::Image::bitsPerPixel(layers, dataType)) / 8))
        return nullptr;
    NBX::SO<NBX::Image> image(
        new NBX::MemoryImage(static_cast<int>(width), static_cast<int>(height), layers, dataType));
    return image->width() > 0 ? image : nullptr;
}

void PixelBlocks::paste(const NBX::Image & source, long long x, long long y, NBX::Image & target) {
    NBX_CHECK(sameFormat(source, target), L"images of different formats");
    if (!sameFormat(source, target)) return;
    const long long x0 = std::max(x, 0LL), x1 = std::min<long long>(x + source.width(), target.width());
    const long long y0 = std::max(y, 0LL), y1 = std::min<long long>(y + source.height(), target.height());
    if (x0 >= x1) return;
    const auto bytes = static_cast<std::size_t>(bytesPerPixel(source));
    for (long long line = y0; line < y1; ++line)
        std::memcpy(static_cast<char *>(target.lineComponents(static_cast<int>(line))) +
                        static_cast<std::size_t>(x0) * bytes,
                    static_cast<const char *>(source.lineComponents(static_cast<int>(line - y))) +
                        static_cast<std::size_t>(x0 - x) * bytes,
                    static_cast<std::size_t>(x1 - x0) * bytes);
}

void PixelBlocks::reduce(const NBX::Image & source, const PixelWindow & window, NBX::Image & target, int x,
                         int y, int width, int height) {
    NBX_CHECK(sameFormat(source, target), L"images of different formats");
    const bool fits = x >= 0 && y >= 0 && width >= 0 && height >= 0 && width <= target.width() - x &&
                      height <= target.height() - y;
    NBX_CHECK(fits, L"the rectangle is not in the image");
    if (!sameFormat(source, target) || !fits || width == 0 || height == 0 || source.width() <= 0 ||
        source.height() <= 0)
        return;
    if (isHalving(source, window, width, height)) return halve(source, window, target, x, y, width, height);
    switch (source.dataType()) {
    case NBX::Image::UInt8:
        return average<std::uint8_t>(source, window, target, x, y, width, height);
    case NBX::Image::UInt16:
        return average<std::uint16_t>(source, window, target, x, y, width, height);
    case NBX::Image::Float:
        return average<float>(source, window, target, x, y, width, height);
    default:
        return averageHalf(source, window, target, x, y, width, height);
    }
}

NBX::SO<NBX::Image> PixelBlocks::read(const TiledGeoImage & source, const PixelWindow & window,
                                      unsigned width, unsigned height) {
    const double stepX = (window.maxX - window.minX) / width, stepY = (window.maxY - window.minY) / height;
    if (stepX == 1.0 && stepY == 1.0 && window.minX == std::floor(window.minX) &&
        window.minY == std::floor(window.minY))
        return source.getImage(static_cast<int>(window.minX), static_cast<int>(window.minY), width, height);
    const NBX::SO<NBX::Image> result = source.createEmptyImage(width, height);
    if (!result || !(stepX > 0.0) || !(stepY > 0.0)) return nullptr;
    const PieceSize piece = pieceSize(source, stepX, stepY, width, height);
    const double limitX = std::max(pieceSide, static_cast<double>(source.granularityX()));
    bool found = false;
    for (unsigned y = 0; y < height; y += piece.height) {
        for (unsigned x = 0; x < width; x += piece.width) {
            const unsigned w = std::min(piece.width, width - x), h = std::min(piece.height, height - y);
            PixelWindow part = {window.minX + x * stepX, window.minY + y * stepY,
                                window.minX + (x + w) * stepX, window.minY + (y + h) * stepY};
            const WholePixels columns = wholePixels(part.minX, part.maxX, limitX + 2.0, source.pixelsX());
            const WholePixels rows = wholePixels(part.minY, part.maxY, pieceSide + 2.0, source.pixelsY());
            const NBX::SO<NBX::Image> pixels = source.getImage(
                static_cast<int>(columns.first), static_cast<int>(rows.first), columns.count, rows.count);
            if (source.failed()) return nullptr;
            if (!pixels) continue;
            reduce(*pixels, part, *result, static_cast<int>(x), static_cast<int>(y), static_cast<int>(w),
                   static_cast<int>(h));
            found = true;
        }
    }
    return found ? result : nullptr;
}

NBX::SO<NBX::Image>
PixelBlocks::readInside(const TiledGeoImage & image, int x, int y, unsigned width, unsigned height,
                        const std::function<NBX::SO<NBX::Image>(const PixelRect &)> & read) {
    const PixelRect rect = inside(image, x, y, width, height);
    if (rect.isEmpty() || !isImageSize(width, height, 4)) return nullptr;
    NBX::SO<NBX::Image> pixels = read(rect);
    if (!pixels || (rect.width == width && rect.height == height)) return pixels;
    NBX::SO<NBX::Image> result = image.createEmptyImage(width, height);
    if (result) paste(*pixels, rect.x - x, rect.y - y, *result);
    return result;
}

NBX::SO<NBX::Image> PixelBlocks::readTiles(const TiledGeoImage & image, int x, int y, unsigned width,
                                           unsigned height, unsigned tileX, unsigned tileY,
                                           const TileReader & read) {
    const PixelRect rect = inside(image, x, y, width, height);
    if (rect.isEmpty() || !isImageSize(width, height, 1)) return nullptr;
    const std::int64_t endX = rect.x + static_cast<std::int64_t>(rect.width);
    const std::int64_t endY = rect.y + static_cast<std::int64_t>(rect.height);
    NBX::SO<NBX::Image> result;
    for (std::int64_t row = rect.y / tileY; row * tileY < endY; ++row) {
        for (std::int64_t column = rect.x / tileX; column * tileX < endX; ++column) {
            NBX::SO<NBX::Image> tile;
            if (!read(column, row, tile)) return nullptr;
            if (!tile) continue;
            if (!result) result = image.createEmptyImage(width, height);
            if (!result) return nullptr;
            paste(*tile, column * tileX - x, row * tileY - y, *result);
        }
    }
    return result;
}

} // namespace ZMT::RASTER
