#include "chunkedlodlightmap.h"

#include <algorithm>
#include <cmath>

#include "chunkedlodterrainimpl.h"
#include <nbx/image/fileimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/progress.h>
#include <zmt/core/terrain/texture/tiledlodtexture.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>
#include <zmt/raster/rasterdata.h>

namespace ZMT::CORE {

namespace {

using Point = ChunkedLodLightMap::Point;
using Byte = unsigned char;

Byte byteOf(double value) {
    return static_cast<Byte>(value > 0.0 ? std::min(value, 255.0) : 0.0);
}

/// The normals of the vertices of a raster of `width` by `height` cells; those beyond the store of heights
/// are as its last ones.
class Normals {
public:
    Normals(const ChunkedLodTerrain::Impl & impl, int width, int height)
        : heights_(impl.heights()), lastColumn_(static_cast<int>(impl.sizeX()) - 1),
          lastRow_(static_cast<int>(impl.sizeY()) - 1), lastX_(width - 1), lastY_(height - 1),
          k_(4915125.0 / std::max(width, height)), f_(k_ * 4.0 * k_) {}

    void setRow(int y) {
        low_ = row(std::max(y - 1, 0));
        middle_ = row(y);
        high_ = row(std::min(y + 1, lastY_));
    }

    /// Of length 1, in the row set.
    Point at(int x) const {
        const int l = column(std::max(x - 1, 0)), m = column(x), r = column(std::min(x + 1, lastX_));
        const double gx = (middle_[l] - middle_[r] + low_[l] - high_[r] + high_[l] - low_[r]) * k_;
        const double gy = (low_[m] - high_[m] + low_[l] - high_[r] + low_[r] - high_[l]) * k_;
        const double s = 1.0 / std::sqrt(gx * gx + f_ * f_ + gy * gy);
        return {gx * s, f_ * s, gy * s};
    }

private:
    int column(int x) const { return std::min(x, lastColumn_); }
    const unsigned short * row(int y) const {
        return heights_ +
               static_cast<std::size_t>(std::min(y, lastRow_)) * (static_cast<unsigned>(lastColumn_) + 1);
    }

    const unsigned short * heights_;
    int lastColumn_, lastRow_, lastX_, lastY_;
    double k_, f_; ///< fixed scales of the quantised heights
    const unsigned short *low_ = nullptr, *middle_ = nullptr, *high_ = nullptr;
};

void fillNormals(const Normals & normals, int width, Byte * line) {
    for (int x = 0; x < width; ++x, line += 3) {
        const Point n = normals.at(x);
        line[0] = byteOf(n.x * 127.0 + 128.0);
        line[1] = byteOf(n.y * 127.0 + 128.0);
        line[2] = byteOf(n.z * 127.0 + 128.0);
    }
}

void fillLight(const Normals & normals, int width, double ambient, const Point & toLight, Byte * line) {
    for (int x = 0; x < width; ++x) {
        const double light = std::max(0.0, normals.at(x).dot(toLight));
        line[x] = byteOf((ambient + (1.0 - ambient) * light) * 255.0);
    }
}

} // namespace

NBX::SO<TerrainTexture> ChunkedLodLightMap::createLightMap(const RASTER::RasterData & raster,
                                                           const ChunkedLodTerrain::Impl & impl, bool normals,
                                                           double ambient, const Point & direction) {
    const int width = static_cast<int>(raster.cellsX()), height = static_cast<int>(raster.cellsY());
    if (width < 2 || height < 2) return nullptr;
    const NBX::LayerSequence layers = normals ? NBX::LS_RGB : NBX::LS_Luminance;
    const NBX::SO<NBX::FileImage> image =
        NBX::FileImage::newTemporary("zmt-clod-terrain-", width, height, layers);
    if (!image) return nullptr;

    NBX::Progress progress("Calculating terrain shading", height);
    const Point toLight = direction.normalized();
    Normals rows(impl, width, height);
    for (int y = 0; y < height; ++y) {
        rows.setRow(y);
        if (normals)
            fillNormals(rows, width, image->lineComponentsU8(y));
        else
            fillLight(rows, width, ambient, toLight, image->lineComponentsU8(y));
        if (!progress.update(y + 1)) return nullptr;
    }

    const NBX::SO<NBX::MemoryImage> half(new NBX::MemoryImage(width / 2, height / 2, layers));
    half->copy(image.get());
    const NBX::Bounds box(Point(raster.minX(), raster.minY(), 0.0), Point(raster.maxX(), raster.maxY(), 0.0));
    return new TiledLODTexture(new RASTER::MemoryTiledGeoImagePyramid(half.get(), box));
}

} // namespace ZMT::CORE
