#include "lightmapwriter.h"

#include <algorithm>
#include <cmath>

#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrainwalks.h>

#include "tileencoding.h"

namespace ZMT::CORE {

namespace {

using StreamingTextureFormat::PlanBox;
using Vector = NBX::Vector3Base<double>;

/// The sum of the weights of a Sobel filter on both sides.
constexpr double s_weights = 8.0;
/// Tiles of this level let their children go once these are done: few enough stay in memory, and few of their
/// neighbours' need be read again.
constexpr int s_unloadingLevel = 6;

unsigned extraLevels(unsigned gridLevel, unsigned textureSize) {
    unsigned k = 0;
    while (2.0 * std::ldexp(1.0, static_cast<int>(gridLevel + k)) < textureSize)
        ++k;
    return k;
}

/// At the centre of 3 by 3 samples; `row` is the middle one of the southern row, and rows lie `pitch` apart.
Vector normalAt(const float * row, std::size_t pitch, double scaleX, double scaleY) {
    const float *south = row, *middle = row + pitch, *north = middle + pitch;
    const float dx = 2.0F * (middle[-1] - middle[1]) + (south[-1] - south[1]) + (north[-1] - north[1]);
    const float dz = 2.0F * (south[0] - north[0]) + (south[-1] - north[-1]) + (south[1] - north[1]);
    const double x = dx * scaleX, z = dz * scaleY;
    return Vector(x, s_weights, z) / std::sqrt(x * x + s_weights * s_weights + z * z);
}

std::uint8_t byte(double value) {
    return static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0));
}

} // namespace

std::vector<std::uint8_t> LightMapPixels::compute(const std::vector<float> & heights, unsigned side,
                                                  double spacingX, double spacingY,
                                                  const LightMapLight & light) {
    const std::size_t pitch = side + std::size_t(2);
    const double scaleX = light.exaggeration / spacingX, scaleY = light.exaggeration / spacingY;
    std::vector<std::uint8_t> pixels;
    pixels.reserve(std::size_t(side) * side * (light.asNormalMap ? 4 : 1));
    for (unsigned y = 0; y < side; ++y)
        for (unsigned x = 0; x < side; ++x) {
            const float * south = &heights[y * pitch + x + 1];
            const Vector n = normalAt(south, pitch, scaleX, scaleY);
            if (light.asNormalMap) {
                for (const double c : {n.x, n.y, n.z})
                    pixels.push_back(byte(128.0 + 127.0 * c));
                pixels.push_back(south[pitch] == 0.0F ? 0 : 255);
            } else {
                const double direct = std::max(0.0, n.dot(light.direction));
                pixels.push_back(byte(255.0 * (light.ambient + (1.0 - light.ambient) * direct)));
            }
        }
    return pixels;
}

LightMapWriter::LightMapWriter(const NBX::SO<GRID::GridTerrainTile> & root, const LightMapLight & light,
                               unsigned textureSize, StreamingTextureWriter & writer)
    : root_(root), light_(light), extraLevels_(extraLevels(root->gridLevel(), textureSize)), writer_(writer) {
}

LightMapWriter::Handle LightMapWriter::write(GRID::GridTerrainTile & tile, const Step & step) {
    if (!writer_.update(step.progress)) return nullptr;
    const NBX::SO<GRID::GridTerrainTileData> data =
        tile.requestTileData(AsyncFile::topPriority, true, nullptr);
    if (!data) {
        isIncomplete_ = true;
        return nullptr;
    }
    const NBX::Bounds box = tile.geoBoundingBox();
    if (!box.isDefined()) return nullptr;

    const StreamingTextureWriter::Children children = writeChildren(tile, step);
    if (writer_.isCanceled()) return nullptr;

    const unsigned cells = 1U << (tile.gridLevel() + extraLevels_);
    const double extent = std::ldexp(double(data->step()), static_cast<int>(tile.gridLevel()));
    const Vector low(double(data->tileX()) * data->step(), double(data->tileY()) * data->step(), 0.0);
    GRID::GetLightMapParam param;
    param.step = extent / cells;
    param.minX = low.x - param.step;
    param.minY = low.y - param.step;
    param.width = param.height = cells + 3;
    // From the root, since the outer ring lies in the neighbours.
    root_->getLightMapRaster(param);
    isIncomplete_ = isIncomplete_ || param.isIncomplete;

    const NBX::Matrix4x4Base<double> toGeo = tile.grid2geoTf();
    const Vector first = toGeo * low, last = toGeo * Vector(low.x + extent, low.y + extent, 0.0);
    const PlanBox image{first.x, first.z, last.x, last.z};
    const PlanBox patch{box.getLLF().x, box.getLLF().z, box.getURB().x, box.getURB().z};
    const auto make = [heights = std::move(param.values), cells, image, patch, light = light_] {
        using namespace StreamingTextureFormat;
        const auto pixels = LightMapPixels::compute(heights, cells + 1, (image.maxX - image.minX) / cells,
                                                    (image.maxY - image.minY) / cells, light);
        return TileEncoding::encode(light.asNormalMap ? PF_RGBA : PF_Luminance, cells + 1, cells + 1, image,
                                    patch, pixels.data());
    };
    return writer_.tiles().add(make, children);
}

StreamingTextureWriter::Children LightMapWriter::writeChildren(GRID::GridTerrainTile & tile,
                                                               const Step & step) {
    using StreamingTextureFormat::childCount;
    StreamingTextureWriter::Children result;
    const double share = step.share / childCount;
    for (unsigned i = 0; i < childCount; ++i)
        if (const NBX::SO<GRID::GridTerrainTile> child = tile.child(i, true)) {
            result[i] = write(*child, {step.progress + i * share, share});
            unload(tile, i);
        }
    return result;
}

void LightMapWriter::unload(GRID::GridTerrainTile & tile, unsigned child) const {
    if (tile.level() >= s_unloadingLevel) tile.unloadChild(child);
}

} // namespace ZMT::CORE
