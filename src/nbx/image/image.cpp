// Formats first, then access to pixels, then copies: of one size line by line, of different sizes by the
// filter of `imagescaling`. Pixels of a whole number of bytes are all that exists, so flipping moves bytes.

#include <nbx/image/image.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>
#include <nbx/object/errorhandler.h>

#include "imagescaling.h"
#include "pixelline.h"

namespace NBX {

NBX_CLASS_IMPL(Image, SharedObj)

namespace {

int bitsPerComponent(int dataType) {
    switch (dataType) {
    case Image::UInt8:
        return 8;
    case Image::UInt16:
    case Image::Half:
        return 16;
    case Image::Float:
        return 32;
    default:
        return 0;
    }
}

enum LayerKind : unsigned { Luminance = 1, Red = 2, Green = 4, Blue = 8, Alpha = 16 };

/// What an image can give without loss.
unsigned givenLayers(LayerSequence sequence) {
    constexpr unsigned grey = Luminance | Red | Green | Blue;
    switch (sequence) {
    case LS_Luminance:
        return grey;
    case LS_Alpha:
        return Alpha;
    case LS_LuminanceAlpha:
    case LS_Intensity:
        return grey | Alpha;
    case LS_RGB:
    case LS_BGR:
        return Red | Green | Blue;
    default:
        return Red | Green | Blue | Alpha;
    }
}

unsigned neededLayers(LayerSequence sequence) {
    switch (sequence) {
    case LS_Luminance:
        return Luminance;
    case LS_LuminanceAlpha:
        return Luminance | Alpha;
    case LS_RGB:
    case LS_BGR:
        return Red | Green | Blue;
    case LS_Alpha:
        return Alpha;
    case LS_Intensity:
        return Luminance | Alpha;
    default:
        return Red | Green | Blue | Alpha;
    }
}

/// Reverses `count` pixels of `N` bytes.
template <int N> void reversePixels(unsigned char * line, int count) {
    using Pixel = std::array<unsigned char, N>;
    unsigned char * last = line + static_cast<std::size_t>(count) * N;
    for (int i = 0; i < count / 2; ++i) {
        Pixel left, right;
        last -= N;
        std::memcpy(left.data(), line, N);
        std::memcpy(right.data(), last, N);
        std::memcpy(line, right.data(), N);
        std::memcpy(last, left.data(), N);
        line += N;
    }
}

void reverseLine(unsigned char * line, int count, int bytesPerPixel) {
    switch (bytesPerPixel) {
    case 1:
        reversePixels<1>(line, count);
        break;
    case 2:
        reversePixels<2>(line, count);
        break;
    case 3:
        reversePixels<3>(line, count);
        break;
    case 4:
        reversePixels<4>(line, count);
        break;
    case 6:
        reversePixels<6>(line, count);
        break;
    case 8:
        reversePixels<8>(line, count);
        break;
    case 12:
        reversePixels<12>(line, count);
        break;
    default:
        reversePixels<16>(line, count);
        break;
    }
}

int nextPowerOf2(int size, int maxSize) {
    int result = 1;
    while (result < size && result < (1 << 30))
        result *= 2;
    while (maxSize > 0 && result > maxSize && result > 1)
        result /= 2;
    return result;
}

template <class T>
void copyComponents(const void * from, int fromStride, void * to, int toStride, int count) {
    const auto * source = static_cast<const T *>(from);
    auto * target = static_cast<T *>(to);
    for (int i = 0; i < count; ++i, source += fromStride, target += toStride)
        *target = *source;
}

/// One layer of a line of equally wide images; `from` and `to` point to its first component.
void copyLayerLine(const void * from, const Image & source, void * to, const Image & target) {
    const int fromStride = source.numberOfLayers(), toStride = target.numberOfLayers();
    if (source.dataType() == target.dataType()) {
        switch (bitsPerComponent(target.dataType())) {
        case 8:
            copyComponents<std::uint8_t>(from, fromStride, to, toStride, target.width());
            return;
        case 16:
            copyComponents<std::uint16_t>(from, fromStride, to, toStride, target.width());
            return;
        default:
            copyComponents<float>(from, fromStride, to, toStride, target.width());
            return;
        }
    }
    const auto * read = static_cast<const unsigned char *>(from);
    auto * written = static_cast<unsigned char *>(to);
    for (int x = 0; x < target.width(); ++x) {
        float value;
        PixelLine::toFloat(read, source.dataType(), 1, &value);
        PixelLine::fromFloat(&value, 1, target.dataType(), written);
        read += source.bitsPerPixel() / 8;
        written += target.bitsPerPixel() / 8;
    }
}

} // namespace

Image::Image(LayerSequence sequence, int dataType) : layerSequence_(LS_Luminance), dataType_(UInt8) {
    setFormat(sequence, dataType);
}

void Image::setFormat(LayerSequence sequence, int dataType) {
    NBX_CHECK(isValidFormat(sequence, dataType), L"unknown image format: layer sequence "
                                                     << static_cast<int>(sequence) << L", data type "
                                                     << dataType);
    const bool valid = isValidFormat(sequence, dataType);
    layerSequence_ = valid ? sequence : LS_Luminance;
    dataType_ = valid ? dataType : static_cast<int>(UInt8);
}

int Image::numberOfLayers(LayerSequence sequence) {
    switch (sequence) {
    case LS_LuminanceAlpha:
        return 2;
    case LS_RGB:
    case LS_BGR:
        return 3;
    case LS_RGBA:
    case LS_BGRA:
        return 4;
    default:
        return 1;
    }
}

int Image::bitsPerPixel(LayerSequence sequence, int dataType) {
    return numberOfLayers(sequence) * bitsPerComponent(dataType);
}

bool Image::isValidFormat(int layerSequence, int dataType) {
    const bool validSequence = (layerSequence >= LS_Luminance && layerSequence <= LS_RGBA) ||
                               (layerSequence >= LS_Alpha && layerSequence <= LS_BGRA);
    return validSequence && bitsPerComponent(dataType) > 0;
}

std::size_t Image::bytesPerLine(int width, LayerSequence sequence, int dataType, int alignment) {
    const std::size_t bytes = static_cast<std::size_t>(width) * bitsPerPixel(sequence, dataType) / 8;
    return (bytes + alignment - 1) / alignment * alignment;
}

bool Image::hasLayers(LayerSequence sequence) const {
    const unsigned needed = neededLayers(sequence);
    return (givenLayers(layerSequence_) & needed) == needed;
}

void * Image::lineComponents(int y) {
    return const_cast<void *>(std::as_const(*this).lineComponents(y));
}

const unsigned char * Image::lineComponentsU8(int y) const {
    NBX_CHECK(dataType() == UInt8, L"components are not of 8 bits");
    return static_cast<const unsigned char *>(lineComponents(y));
}

unsigned char * Image::lineComponentsU8(int y) {
    return const_cast<unsigned char *>(std::as_const(*this).lineComponentsU8(y));
}

const void * Image::pixelComponents(int x, int y, int layer) const {
    NBX_CHECK_RANGE(0, x, width());
    NBX_CHECK_RANGE(0, layer, numberOfLayers());
    if (x < 0 || x >= width() || layer < 0 || layer >= numberOfLayers()) return nullptr;
    const auto * line = static_cast<const unsigned char *>(lineComponents(y));
    if (!line) return nullptr;
    const std::size_t component = static_cast<std::size_t>(x) * numberOfLayers() + layer;
    return line + component * bitsPerComponent(dataType_) / 8;
}

void * Image::pixelComponents(int x, int y, int layer) {
    return const_cast<void *>(std::as_const(*this).pixelComponents(x, y, layer));
}

const unsigned char * Image::pixelComponentsU8(int x, int y, int layer) const {
    NBX_CHECK(dataType() == UInt8, L"components are not of 8 bits");
    return static_cast<const unsigned char *>(pixelComponents(x, y, layer));
}

unsigned char * Image::pixelComponentsU8(int x, int y, int layer) {
    return const_cast<unsigned char *>(std::as_const(*this).pixelComponentsU8(x, y, layer));
}

Color Image::getColor(int x, int y) const {
    const void * pixel = pixelComponents(x, y, 0);
    if (!pixel) return Color();
    std::array<float, 4> rgba;
    PixelLine::toRgba(pixel, layerSequence_, dataType_, 1, rgba.data());
    return Color(rgba[0], rgba[1], rgba[2], rgba[3]);
}

void Image::setColor(int x, int y, const Color & color) {
    NBX_CHECK(isWritable(), L"image is read only");
    if (!isWritable()) return;
    void * pixel = pixelComponents(x, y, 0);
    if (pixel) PixelLine::fromRgba(color.data(), 1, layerSequence_, dataType_, pixel);
}

bool Image::copy(const Image * source) {
    NBX_CHECK(source && !source->isEmpty(), L"no image");
    NBX_CHECK(isWritable() && !isEmpty(), L"image cannot be written");
    if (!source || source->isEmpty() || !isWritable() || isEmpty()) return false;
    if (source == this) return true;
    if (source->width() != width() || source->height() != height()) {
        scaleImage(*source, *this);
    } else {
        for (int y = 0; y < height(); ++y)
            PixelLine::convert(source->lineComponents(y), source->layerSequence(), source->dataType(),
                               lineComponents(y), layerSequence_, dataType_, width());
    }
    modified();
    return true;
}

bool Image::copyLayer(const Image * source, int sourceLayer, int layer) {
    NBX_CHECK(source, L"no image");
    if (!source) return false;
    const bool sameSize = source->width() == width() && source->height() == height();
    NBX_CHECK(sameSize, L"images of different size");
    NBX_CHECK_RANGE(0, sourceLayer, source->numberOfLayers());
    NBX_CHECK_RANGE(0, layer, numberOfLayers());
    NBX_CHECK(isWritable(), L"image is read only");
    if (!sameSize || sourceLayer < 0 || sourceLayer >= source->numberOfLayers() || layer < 0 ||
        layer >= numberOfLayers() || !isWritable() || isEmpty())
        return false;

    for (int y = 0; y < height(); ++y)
        copyLayerLine(source->pixelComponents(0, y, sourceLayer), *source, pixelComponents(0, y, layer),
                      *this);
    modified();
    return true;
}

void Image::flip(bool alongX, bool alongY) {
    NBX_CHECK(isWritable(), L"image is read only");
    if (!isWritable() || isEmpty()) return;
    const std::size_t bytes = bytesPerLine(width(), layerSequence_, dataType_, 1);
    if (alongX)
        for (int y = 0; y < height(); ++y)
            reverseLine(static_cast<unsigned char *>(lineComponents(y)), width(), bitsPerPixel() / 8);
    if (alongY)
        for (int low = 0, high = height() - 1; low < high; ++low, --high) {
            auto * lower = static_cast<unsigned char *>(lineComponents(low));
            std::swap_ranges(lower, lower + bytes, static_cast<unsigned char *>(lineComponents(high)));
        }
    modified();
}

SO<Image> Image::uncompressed(bool ownCopy) {
    if (!ownCopy || isEmpty()) return this;
    SO<Image> result(new MemoryImage(width(), height(), layerSequence_, dataType_));
    result->copy(this);
    return result;
}

std::vector<SO<Image>> Image::createMipmapPyramid() {
    if (isEmpty()) return {};
    std::vector<SO<Image>> levels{this};
    while (levels.back()->width() > 1 || levels.back()->height() > 1) {
        const Image & finer = *levels.back();
        SO<Image> level(new MemoryImage(std::max(1, finer.width() / 2), std::max(1, finer.height() / 2),
                                        layerSequence_, dataType_));
        level->copy(&finer);
        levels.push_back(level);
    }
    return levels;
}

SO<Image> Image::copyToPow2(int maxSize) const {
    if (isEmpty()) return nullptr;
    SO<Image> result(new MemoryImage(nextPowerOf2(width(), maxSize), nextPowerOf2(height(), maxSize),
                                     layerSequence_, dataType_));
    result->copy(this);
    return result;
}

} // namespace NBX
