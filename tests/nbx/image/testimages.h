#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/data/memorydataresource.h>
#include <nbx/image/memoryimage.h>

/// An image whose bytes are drawn at random; the padding stays zero. Only for integer types.
inline NBX::SO<NBX::MemoryImage> randomImage(int width, int height, NBX::LayerSequence sequence,
                                             int dataType = NBX::Image::UInt8, int alignment = 1,
                                             unsigned seed = 1) {
    NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(width, height, sequence, dataType, alignment));
    std::mt19937 random(seed);
    for (int y = 0; y < height; ++y) {
        auto * line = static_cast<unsigned char *>(image->lineComponents(y));
        std::generate_n(line, NBX::Image::bytesPerLine(width, sequence, dataType, 1),
                        [&] { return static_cast<unsigned char>(random()); });
    }
    return image;
}

/// Slow waves, different in each layer: what lossy formats are made for.
inline NBX::SO<NBX::MemoryImage> smoothImage(int width, int height, NBX::LayerSequence sequence) {
    NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(width, height, sequence));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int layer = 0; layer < image->numberOfLayers(); ++layer)
                *image->pixelComponentsU8(x, y, layer) = static_cast<unsigned char>(
                    128 + 100 * std::sin(0.05 * (layer + 1) * x + 0.08 * y + layer));
    return image;
}

/// True for images of equal size, format and pixels.
inline bool samePixels(const NBX::Image & a, const NBX::Image & b) {
    if (a.width() != b.width() || a.height() != b.height() || a.layerSequence() != b.layerSequence() ||
        a.dataType() != b.dataType())
        return false;
    const std::size_t bytes = NBX::Image::bytesPerLine(a.width(), a.layerSequence(), a.dataType(), 1);
    for (int y = 0; y < a.height(); ++y)
        if (std::memcmp(a.lineComponents(y), b.lineComponents(y), bytes)) return false;
    return true;
}

/// Root of the mean square of the differences of 8-bit components.
inline double rootMeanSquare(const NBX::Image & a, const NBX::Image & b) {
    EXPECT_EQ(a.layerSequence(), b.layerSequence());
    double sum = 0.0;
    const int perLine = a.width() * a.numberOfLayers();
    for (int y = 0; y < a.height(); ++y)
        for (int i = 0; i < perLine; ++i) {
            const double d = a.lineComponentsU8(y)[i] - b.lineComponentsU8(y)[i];
            sum += d * d;
        }
    return std::sqrt(sum / perLine / a.height());
}

/// A resource of exactly these bytes in memory of their own, so that the address sanitizer sees each step
/// beyond.
inline NBX::SO<NBX::MemoryDataResource> resourceOf(const unsigned char * bytes, std::size_t count) {
    return new NBX::MemoryDataResource(bytes, static_cast<unsigned>(count));
}

inline const unsigned char * bytesOf(const NBX::DataResource & resource) {
    return static_cast<const unsigned char *>(resource.pointer());
}
