#pragma once

#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/tiledgeoimage.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

/// Sizes without pixels.
class FakeLevel : public ZMT::RASTER::TiledGeoImage {
    NBX_TEMPLATE_CLASS(FakeLevel, ZMT::RASTER::TiledGeoImage)
public:
    FakeLevel(double pixelSizeX, double pixelSizeY, std::uint64_t pixelsX, std::uint64_t pixelsY)
        : pixelSizeX_(pixelSizeX), pixelSizeY_(pixelSizeY), pixelsX_(pixelsX), pixelsY_(pixelsY) {}

    unsigned bands() const override { return 3; }
    double minX() const override { return 0.0; }
    double minY() const override { return 0.0; }
    double pixelSizeX() const override { return pixelSizeX_; }
    double pixelSizeY() const override { return pixelSizeY_; }
    std::uint64_t pixelsX() const override { return pixelsX_; }
    std::uint64_t pixelsY() const override { return pixelsY_; }
    NBX::SO<NBX::Image> getImage(int, int, unsigned, unsigned) const override { return nullptr; }
    bool failed() const override { return hasFailed; }
    unsigned granularityX() const override { return 1; }
    unsigned granularityY() const override { return 1; }

    bool hasFailed = false;

private:
    double pixelSizeX_, pixelSizeY_;
    std::uint64_t pixelsX_, pixelsY_;
};

/// An oblong from the origin, four times as wide as deep, in levels of which each has half the resolution of
/// the one before. Delivers small images of the box that it is asked for, and notes the boxes.
class FakePyramid : public ZMT::RASTER::TiledGeoImagePyramid {
    NBX_TEMPLATE_CLASS(FakePyramid, ZMT::RASTER::TiledGeoImagePyramid)
public:
    struct Call {
        double minX, minY, maxX, maxY;
        unsigned width, height;
        std::thread::id thread;
    };

    /// The finest level has `pixels` columns of size 1, and half as many rows of half that size.
    FakePyramid(std::uint64_t pixels, unsigned levels) : width_(static_cast<double>(pixels)) {
        for (unsigned i = 0; i < levels; ++i)
            levels_.emplace_back(new FakeLevel(1.0 * (1U << i), 0.5 * (1U << i),
                                               std::max<std::uint64_t>(pixels >> i, 1),
                                               std::max<std::uint64_t>(pixels >> i >> 1, 1)));
    }

    double minX() const override { return 0.0; }
    double minY() const override { return 0.0; }
    double maxX() const override { return width_; }
    double maxY() const override { return width_ / 4.0; }
    unsigned overviews() const override { return static_cast<unsigned>(levels_.size()); }
    NBX::SO<ZMT::RASTER::TiledGeoImage> overview(unsigned index) const override {
        return index < levels_.size() ? levels_[index] : nullptr;
    }
    NBX::SO<ZMT::RASTER::GeoImage> getGeoImage(double minX, double minY, double maxX, double maxY,
                                               unsigned width, unsigned height) const override {
        {
            const std::lock_guard lock(mutex_);
            calls_.push_back({minX, minY, maxX, maxY, width, height, std::this_thread::get_id()});
        }
        if (during) during(maxX - minX);
        const NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(4, 2, layers, dataType));
        const double pixelX = (maxX - minX) / 4.0, pixelY = (maxY - minY) / 2.0;
        return isBlank && isBlank(maxX - minX)
                   ? nullptr
                   : ZMT::RASTER::GeoImage::fromOrigin(image.get(), minX + 0.5 * pixelX, minY + 0.5 * pixelY,
                                                       pixelX, pixelY);
    }

    std::vector<Call> calls() const {
        const std::lock_guard lock(mutex_);
        return calls_;
    }
    /// The widths of the boxes asked for, one behind the other.
    std::string widths() const {
        std::string text;
        for (const Call & call : calls())
            text += std::to_string(std::lround(call.maxX - call.minX)) + " ";
        return text;
    }

    /// Called with the width of the box, on any thread.
    std::function<void(double)> during;
    std::function<bool(double)> isBlank;
    NBX::LayerSequence layers = NBX::LS_RGBA;
    int dataType = NBX::Image::UInt8;

private:
    double width_;
    std::vector<NBX::SO<ZMT::RASTER::TiledGeoImage>> levels_;
    mutable std::mutex mutex_;
    mutable std::vector<Call> calls_;
};

/// A box of a quadtree, without data.
class FakePatch : public ZMT::CORE::GeometryPatch {
    NBX_TEMPLATE_CLASS(FakePatch, ZMT::CORE::GeometryPatch)
public:
    using Point = NBX::Vector3Base<double>;

    explicit FakePatch(const NBX::Bounds & box, const NBX::SO<Children> & children = nullptr)
        : GeometryPatch(box, 0.0, 0.0, children) {}
    NBX::SO<ZMT::CORE::GeometryData> data() const override { return nullptr; }

    /// The oblong from (x, z) with `levels` of four children each below it.
    static NBX::SO<FakePatch> oblong(double x, double z, double width, double depth, unsigned levels) {
        const NBX::Bounds box(Point(x, 0.0, z), Point(x + width, 10.0, z + depth));
        if (levels == 0) return new FakePatch(box);
        std::vector<NBX::SO<GeometryPatch>> children;
        for (unsigned i = 0; i < 4; ++i)
            children.emplace_back(oblong(x + (i % 2) * width / 2.0, z + (i / 2) * depth / 2.0, width / 2.0,
                                         depth / 2.0, levels - 1)
                                      .get());
        return new FakePatch(box, new NBX::Array<NBX::SO<GeometryPatch>>(std::move(children)));
    }
};

/// From above, in parallel: `pixels` of the screen for each unit of the scene.
inline NBX::SO<NBX::ViewInfo> viewFromAbove(double pixels) {
    using Matrix = NBX::Matrix4x4Base<double>;
    const Matrix modelView({1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, -1000, 0, 0, 0, 1});
    return new NBX::ViewInfo(modelView, Matrix::scaling({2.0 * pixels / 1000, 2.0 * pixels / 1000, -0.001}),
                             NBX::Area(0, 0, 1000, 1000));
}
