#pragma once

#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>

#include "../fakepyramid.h"

/// An image whose columns and rows can be told apart, with pixels of 2 by 0.5 units, and the patches of a
/// terrain on the same ground.
namespace OblongSource {

constexpr double minX = 1000.0, minY = 2000.0, pixelX = 2.0, pixelY = 0.5;
constexpr int columns = 256, rows = 128;
constexpr double maxX = minX + columns * pixelX, maxY = minY + rows * pixelY;

/// Of the finest level.
inline NBX::Color colour(int x, int y) {
    return {float(x % 256) / 255.0F, float(y * 2 % 256) / 255.0F, float((x * 7 + y * 13) % 256) / 255.0F,
            1.0F};
}

inline NBX::SO<NBX::Image> image(NBX::LayerSequence layers = NBX::LS_RGBA, int width = columns,
                                 int height = rows) {
    const NBX::SO<NBX::Image> result(new NBX::MemoryImage(width, height, layers));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            result->setColor(x, y, colour(x, y));
    return result;
}

inline NBX::SO<ZMT::RASTER::MemoryTiledGeoImagePyramid> pyramid(NBX::LayerSequence layers = NBX::LS_RGBA) {
    const NBX::Bounds box({minX, minY, 0.0}, {maxX, maxY, 0.0});
    return new ZMT::RASTER::MemoryTiledGeoImagePyramid(image(layers).get(), box);
}

/// `levels` of four children each below the root, which covers the image.
inline NBX::SO<FakePatch> patches(unsigned levels) {
    return FakePatch::oblong(minX, minY, maxX - minX, maxY - minY, levels);
}

} // namespace OblongSource
