// The finest pixels of the parts make the grid, stretched to whole numbers over the common extent. A request
// is drawn part by part, later ones above: each from its coarsest level that is fine enough, averaged, and
// blended by its alpha.

#include "mosaictiledgeoimage.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <zmt/raster/pixelblocks.h>

namespace ZMT::UTIL {

NBX_CLASS_IMPL(MosaicTiledGeoImage, RASTER::TiledGeoImage)

namespace {

using RASTER::PixelBlocks;
using RASTER::TiledGeoImage;
using RASTER::TiledGeoImagePyramid;

std::uint64_t pixelsOf(double extent, double pixelSize) {
    return static_cast<std::uint64_t>(std::clamp(std::round(extent / pixelSize), 1.0, 4e9));
}

/// The pixels of a target axis whose middles lie in an interval.
struct Range {
    int first = 0, count = 0;
};

Range covered(double low, double high, int size) {
    const double first = std::clamp(std::ceil(low - 0.5 - 1e-6), 0.0, size + 0.0);
    const double end = std::clamp(std::floor(high - 0.5 + 1e-6) + 1.0, first, size + 0.0);
    return {static_cast<int>(first), static_cast<int>(end - first)};
}

/// The coarsest level that is at least as fine as wanted, else the finest.
NBX::SO<TiledGeoImage> levelFor(const TiledGeoImagePyramid & part, double pixelSize) {
    NBX::SO<TiledGeoImage> result = part.overview(0);
    for (unsigned i = 1; i < part.overviews(); ++i) {
        const NBX::SO<TiledGeoImage> level = part.overview(i);
        if (level->pixelSizeX() > pixelSize * (1.0 + 1e-6)) break;
        result = level;
    }
    return result;
}

/// Puts 8-bit pixels above others by their alpha, which is the last layer.
void blend(const NBX::Image & image, int x, int y, NBX::Image & target) {
    const int layers = target.numberOfLayers();
    for (int row = 0; row < image.height(); ++row) {
        const unsigned char * from = image.lineComponentsU8(row);
        unsigned char * to = target.lineComponentsU8(y + row) + static_cast<std::ptrdiff_t>(x) * layers;
        for (int i = 0; i < image.width(); ++i, from += layers, to += layers) {
            const int above = from[layers - 1];
            const int below = (255 - above) * to[layers - 1];
            const int sum = 255 * above + below;
            for (int l = 0; l + 1 < layers && sum > 0; ++l)
                to[l] = static_cast<unsigned char>((255 * above * from[l] + below * to[l] + sum / 2) / sum);
            to[layers - 1] = static_cast<unsigned char>((sum + 127) / 255);
        }
    }
}

} // namespace

MosaicTiledGeoImage::MosaicTiledGeoImage(std::vector<NBX::SO<TiledGeoImagePyramid>> parts)
    : parts_(std::move(parts)) {
    const TiledGeoImagePyramid & first = *parts_[0];
    extent_ = {first.minX(), first.minY(), first.maxX(), first.maxY()};
    pixelSizeX_ = first.overview(0)->pixelSizeX();
    pixelSizeY_ = first.overview(0)->pixelSizeY();
    for (const auto & part : parts_) {
        extent_ = {std::min(extent_.minX, part->minX()), std::min(extent_.minY, part->minY()),
                   std::max(extent_.maxX, part->maxX()), std::max(extent_.maxY, part->maxY())};
        pixelSizeX_ = std::min(pixelSizeX_, part->overview(0)->pixelSizeX());
        pixelSizeY_ = std::min(pixelSizeY_, part->overview(0)->pixelSizeY());
    }
    pixelsX_ = pixelsOf(extent_.maxX - extent_.minX, pixelSizeX_);
    pixelsY_ = pixelsOf(extent_.maxY - extent_.minY, pixelSizeY_);
    pixelSizeX_ = (extent_.maxX - extent_.minX) / static_cast<double>(pixelsX_);
    pixelSizeY_ = (extent_.maxY - extent_.minY) / static_cast<double>(pixelsY_);
    findFormat();
}

/// What holds all parts, with alpha for what none of them covers.
void MosaicTiledGeoImage::findFormat() {
    bool isGray = true, isFloat = true;
    for (const auto & part : parts_) {
        const NBX::SO<NBX::Image> pixel = part->overview(0)->createEmptyImage(1, 1);
        isGray = isGray && pixel && pixel->numberOfLayers() <= 2;
        isFloat = isFloat && pixel && pixel->dataType() == NBX::Image::Float;
    }
    layers_ = isFloat ? NBX::LS_Luminance : isGray ? NBX::LS_LuminanceAlpha : NBX::LS_RGBA;
    dataType_ = isFloat ? NBX::Image::Float : NBX::Image::UInt8;
}

unsigned MosaicTiledGeoImage::bands() const {
    return static_cast<unsigned>(NBX::Image::numberOfLayers(layers_));
}

bool MosaicTiledGeoImage::failed() const {
    return std::any_of(parts_.begin(), parts_.end(),
                       [](const auto & part) { return part->overview(0)->failed(); });
}

NBX::SO<NBX::Image> MosaicTiledGeoImage::createEmptyImage(unsigned width, unsigned height) const {
    return PixelBlocks::newImage(width, height, layers_, dataType_);
}

bool MosaicTiledGeoImage::draw(const TiledGeoImagePyramid & part, int x, int y, NBX::Image & target) const {
    const double left = minX() + x * pixelSizeX_, bottom = minY() + y * pixelSizeY_;
    const Range columns =
        covered((part.minX() - left) / pixelSizeX_, (part.maxX() - left) / pixelSizeX_, target.width());
    const Range rows =
        covered((part.minY() - bottom) / pixelSizeY_, (part.maxY() - bottom) / pixelSizeY_, target.height());
    if (columns.count == 0 || rows.count == 0) return false;
    const NBX::SO<TiledGeoImage> level = levelFor(part, pixelSizeX_);
    const auto inLevel = [](double position, double origin, double pixelSize, std::uint64_t pixels) {
        const double pixel = (position - origin) / pixelSize, whole = std::round(pixel);
        return std::clamp(std::abs(pixel - whole) < 1e-6 ? whole : pixel, 0.0, static_cast<double>(pixels));
    };
    const RASTER::PixelWindow window = {
        inLevel(left + columns.first * pixelSizeX_, level->minX(), level->pixelSizeX(), level->pixelsX()),
        inLevel(bottom + rows.first * pixelSizeY_, level->minY(), level->pixelSizeY(), level->pixelsY()),
        inLevel(left + (columns.first + columns.count) * pixelSizeX_, level->minX(), level->pixelSizeX(),
                level->pixelsX()),
        inLevel(bottom + (rows.first + rows.count) * pixelSizeY_, level->minY(), level->pixelSizeY(),
                level->pixelsY())};
    const NBX::SO<NBX::Image> pixels = PixelBlocks::read(*level, window, static_cast<unsigned>(columns.count),
                                                         static_cast<unsigned>(rows.count));
    if (!pixels) return false;
    const NBX::SO<NBX::Image> converted =
        createEmptyImage(static_cast<unsigned>(columns.count), static_cast<unsigned>(rows.count));
    if (!converted || !converted->copy(pixels.get())) return false;
    if (dataType_ == NBX::Image::Float)
        PixelBlocks::paste(*converted, columns.first, rows.first, target);
    else
        blend(*converted, columns.first, rows.first, target);
    return true;
}

NBX::SO<NBX::Image> MosaicTiledGeoImage::getImage(int x, int y, unsigned width, unsigned height) const {
    const NBX::SO<NBX::Image> result = createEmptyImage(width, height);
    if (!result) return nullptr;
    bool found = false;
    for (const auto & part : parts_)
        found = draw(*part, x, y, *result) || found;
    return found && !failed() ? result : nullptr;
}

} // namespace ZMT::UTIL
