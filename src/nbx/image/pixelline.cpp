// Three ways from format to format: the same is copied, bytes that only change places are swizzled, all else
// goes through RGBA as floats in chunks that stay on the stack. Luminance has the weights of ITU-R BT.601;
// halves are those of IEEE 754, rounded to nearest, ties to even.

#include "pixelline.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace NBX::PixelLine {

namespace {

/// What a target layer is made of.
enum Source : signed char { One = -1, Luma = -2 };

/// Number of pixels that pass through a buffer on the stack at a time.
constexpr int chunkSize = 256;
using ChunkValues = std::array<float, std::size_t{4} * chunkSize>;

/// Index of the source layer that holds red, green, blue and alpha, or `One`.
struct RgbaPlaces {
    std::array<signed char, 4> layer;
};

RgbaPlaces rgbaPlaces(LayerSequence sequence) {
    switch (sequence) {
    case LS_LuminanceAlpha:
        return {{0, 0, 0, 1}};
    case LS_RGB:
        return {{0, 1, 2, One}};
    case LS_RGBA:
        return {{0, 1, 2, 3}};
    case LS_Alpha:
        return {{One, One, One, 0}};
    case LS_Intensity:
        return {{0, 0, 0, 0}};
    case LS_BGR:
        return {{2, 1, 0, One}};
    case LS_BGRA:
        return {{2, 1, 0, 3}};
    case LS_Luminance:
        break;
    }
    return {{0, 0, 0, One}};
}

/// The component of red, green, blue, alpha (0 to 3), or `Luma`, that makes up each layer.
std::array<signed char, 4> layerSources(LayerSequence sequence) {
    switch (sequence) {
    case LS_LuminanceAlpha:
        return {Luma, 3};
    case LS_RGB:
        return {0, 1, 2};
    case LS_RGBA:
        return {0, 1, 2, 3};
    case LS_Alpha:
        return {3};
    case LS_BGR:
        return {2, 1, 0};
    case LS_BGRA:
        return {2, 1, 0, 3};
    case LS_Luminance:
    case LS_Intensity:
        break;
    }
    return {Luma};
}

bool isGrey(LayerSequence sequence) {
    return sequence != LS_RGB && sequence != LS_RGBA && sequence != LS_BGR && sequence != LS_BGRA;
}

float luma(const float * rgba) {
    // Grey stays exactly what it was.
    if (rgba[0] == rgba[1] && rgba[1] == rgba[2]) return rgba[0];
    return 0.299F * rgba[0] + 0.587F * rgba[1] + 0.114F * rgba[2];
}

float floatOfHalf(std::uint16_t half) {
    const std::uint32_t sign = (half & 0x8000U) << 16;
    const std::uint32_t exponent = (half >> 10) & 31U;
    const std::uint32_t mantissa = half & 0x3FFU;
    if (exponent == 0) {
        const float value = static_cast<float>(mantissa) * 0x1p-24F;
        return sign ? -value : value;
    }
    if (exponent == 31) return std::bit_cast<float>(sign | 0x7F800000U | (mantissa << 13));
    return std::bit_cast<float>(sign | ((exponent + 112U) << 23) | (mantissa << 13));
}

/// Shifts right, rounding to nearest, ties to even.
std::uint32_t shiftRounded(std::uint32_t value, int shift) {
    const std::uint32_t half = 1U << (shift - 1);
    const std::uint32_t rest = value & ((1U << shift) - 1U);
    const std::uint32_t result = value >> shift;
    return result + (rest > half || (rest == half && (result & 1U)) ? 1U : 0U);
}

std::uint16_t halfOfFloat(float value) {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    const std::uint32_t sign = (bits >> 16) & 0x8000U;
    const std::uint32_t magnitude = bits & 0x7FFFFFFFU;
    std::uint32_t result = 0;
    if (magnitude > 0x7F800000U)
        result = 0x7E00U;
    else if (magnitude >= 0x47800000U)
        result = 0x7C00U;
    else if (magnitude >= 0x38800000U)
        result = shiftRounded(magnitude - 0x38000000U, 13);
    else if (magnitude >= 0x33000000U)
        result = shiftRounded((magnitude & 0x7FFFFFU) | 0x800000U, 126 - static_cast<int>(magnitude >> 23));
    return static_cast<std::uint16_t>(sign | result);
}

template <class T> T integerOf(float value) {
    constexpr float largest = static_cast<float>(static_cast<T>(~T{0}));
    if (!(value > 0.0F)) return 0;
    if (value >= 1.0F) return static_cast<T>(~T{0});
    return static_cast<T>(value * largest + 0.5F);
}

/// Copies bytes of layers that need no arithmetic.
template <int N>
void swizzle(const std::uint8_t * from, int fromLayers, std::uint8_t * to, const signed char * layer,
             int count) {
    for (int i = 0; i < count; ++i, from += fromLayers, to += N)
        for (int k = 0; k < N; ++k)
            to[k] = layer[k] < 0 ? std::uint8_t{0xFF} : from[layer[k]];
}

/// For every target layer the source layer or `One`; false where arithmetic is needed.
bool findSwizzle(LayerSequence from, LayerSequence to, std::array<signed char, 4> & layer) {
    const RgbaPlaces places = rgbaPlaces(from);
    const std::array<signed char, 4> sources = layerSources(to);
    for (int k = 0; k < Image::numberOfLayers(to); ++k) {
        if (sources[k] == Luma && !isGrey(from)) return false;
        layer[k] = places.layer[sources[k] == Luma ? 0 : sources[k]];
    }
    return true;
}

void swizzleBytes(const void * from, LayerSequence fromSequence, void * to, LayerSequence toSequence,
                  const signed char * layer, int count) {
    const auto * source = static_cast<const std::uint8_t *>(from);
    auto * target = static_cast<std::uint8_t *>(to);
    const int layers = Image::numberOfLayers(fromSequence);
    switch (Image::numberOfLayers(toSequence)) {
    case 1:
        swizzle<1>(source, layers, target, layer, count);
        break;
    case 2:
        swizzle<2>(source, layers, target, layer, count);
        break;
    case 3:
        swizzle<3>(source, layers, target, layer, count);
        break;
    default:
        swizzle<4>(source, layers, target, layer, count);
        break;
    }
}

void expand(const float * values, LayerSequence sequence, int count, float * rgba) {
    const RgbaPlaces places = rgbaPlaces(sequence);
    const int layers = Image::numberOfLayers(sequence);
    for (int i = 0; i < count; ++i, values += layers, rgba += 4)
        for (int k = 0; k < 4; ++k)
            rgba[k] = places.layer[k] < 0 ? 1.0F : values[places.layer[k]];
}

void reduce(const float * rgba, int count, LayerSequence sequence, float * values) {
    const std::array<signed char, 4> sources = layerSources(sequence);
    const int layers = Image::numberOfLayers(sequence);
    for (int i = 0; i < count; ++i, values += layers, rgba += 4)
        for (int k = 0; k < layers; ++k)
            values[k] = sources[k] == Luma ? luma(rgba) : rgba[sources[k]];
}

/// Calls `work(first, count)` for runs of at most `chunkSize` pixels.
template <class Work> void inChunks(int count, Work work) {
    for (int first = 0; first < count; first += chunkSize)
        work(first, std::min(chunkSize, count - first));
}

std::size_t bytesOf(LayerSequence sequence, int dataType) {
    return static_cast<std::size_t>(Image::bitsPerPixel(sequence, dataType)) / 8;
}

} // namespace

void toFloat(const void * components, int dataType, std::size_t count, float * values) {
    const auto * u8 = static_cast<const std::uint8_t *>(components);
    const auto * u16 = static_cast<const std::uint16_t *>(components);
    switch (dataType) {
    case Image::UInt8:
        for (std::size_t i = 0; i < count; ++i)
            values[i] = static_cast<float>(u8[i]) / 255.0F;
        break;
    case Image::UInt16:
        for (std::size_t i = 0; i < count; ++i)
            values[i] = static_cast<float>(u16[i]) / 65535.0F;
        break;
    case Image::Half:
        for (std::size_t i = 0; i < count; ++i)
            values[i] = floatOfHalf(u16[i]);
        break;
    default:
        std::memcpy(values, components, count * sizeof(float));
        break;
    }
}

void fromFloat(const float * values, std::size_t count, int dataType, void * components) {
    auto * u8 = static_cast<std::uint8_t *>(components);
    auto * u16 = static_cast<std::uint16_t *>(components);
    switch (dataType) {
    case Image::UInt8:
        for (std::size_t i = 0; i < count; ++i)
            u8[i] = integerOf<std::uint8_t>(values[i]);
        break;
    case Image::UInt16:
        for (std::size_t i = 0; i < count; ++i)
            u16[i] = integerOf<std::uint16_t>(values[i]);
        break;
    case Image::Half:
        for (std::size_t i = 0; i < count; ++i)
            u16[i] = halfOfFloat(values[i]);
        break;
    default:
        std::memcpy(components, values, count * sizeof(float));
        break;
    }
}

void toRgba(const void * line, LayerSequence sequence, int dataType, int count, float * rgba) {
    const int layers = Image::numberOfLayers(sequence);
    ChunkValues values;
    inChunks(count, [&](int first, int n) {
        const auto * from = static_cast<const char *>(line) + first * bytesOf(sequence, dataType);
        toFloat(from, dataType, static_cast<std::size_t>(n) * layers, values.data());
        expand(values.data(), sequence, n, rgba + 4 * static_cast<std::size_t>(first));
    });
}

void fromRgba(const float * rgba, int count, LayerSequence sequence, int dataType, void * line) {
    const int layers = Image::numberOfLayers(sequence);
    ChunkValues values;
    inChunks(count, [&](int first, int n) {
        reduce(rgba + 4 * static_cast<std::size_t>(first), n, sequence, values.data());
        auto * to = static_cast<char *>(line) + first * bytesOf(sequence, dataType);
        fromFloat(values.data(), static_cast<std::size_t>(n) * layers, dataType, to);
    });
}

void convertToFloat(const void * from, LayerSequence fromSequence, int fromType, LayerSequence toSequence,
                    int count, float * values) {
    if (fromSequence == toSequence) {
        toFloat(from, fromType, static_cast<std::size_t>(count) * Image::numberOfLayers(fromSequence),
                values);
        return;
    }
    convert(from, fromSequence, fromType, values, toSequence, Image::Float, count);
}

void convert(const void * from, LayerSequence fromSequence, int fromType, void * to, LayerSequence toSequence,
             int toType, int count) {
    if (fromSequence == toSequence && fromType == toType) {
        std::memcpy(to, from, count * bytesOf(toSequence, toType));
        return;
    }
    std::array<signed char, 4> layer{};
    if (fromType == Image::UInt8 && toType == Image::UInt8 && findSwizzle(fromSequence, toSequence, layer)) {
        swizzleBytes(from, fromSequence, to, toSequence, layer.data(), count);
        return;
    }
    ChunkValues rgba;
    inChunks(count, [&](int first, int n) {
        toRgba(static_cast<const char *>(from) + first * bytesOf(fromSequence, fromType), fromSequence,
               fromType, n, rgba.data());
        fromRgba(rgba.data(), n, toSequence, toType,
                 static_cast<char *>(to) + first * bytesOf(toSequence, toType));
    });
}

} // namespace NBX::PixelLine
