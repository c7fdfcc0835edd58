// Flying over a terrain with an image of 20000 by 20000 pixels, 3000 frames of 1280 by 720: how long
// texturing keeps the render thread, and what it takes of memory. `FLYOVER_FRAMES=number` flies the same way
// in fewer frames, each farther from the one before.
//
// The image is computed; `FLYOVER_IMAGE=file` takes one of GDAL's instead, stretched over the same ground:
//     gdal_translate -of GTiff -co TILED=YES -co COMPRESS=JPEG -outsize 20000 20000 any.tif large.tif
//     gdaladdo -r average large.tif

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/nbxtime.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/terrain/texture/tiledlodtexture.h>
#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/tiledgeoimage.h>

#include "syntheticterrain.h"

namespace {

using namespace ZMT::CORE;
using NBX::NBXTime;
using Point = NBX::Vector3Base<double>;

constexpr unsigned s_cells = 1025;
constexpr double s_extent = (s_cells - 1) * 30.0;
constexpr unsigned s_pixels = 20000;
constexpr unsigned s_maxVertices = 100;

int numberOfFrames() {
    const char * number = std::getenv("FLYOVER_FRAMES");
    return number ? std::max(std::atoi(number), 2) : 3000;
}

const int s_frames = numberOfFrames();

/// One level of the computed image: stripes whose colours tell place and level.
class ComputedLevel : public ZMT::RASTER::TiledGeoImage {
    NBX_TEMPLATE_CLASS(ComputedLevel, ZMT::RASTER::TiledGeoImage)
public:
    explicit ComputedLevel(unsigned level)
        : level_(level), pixels_((s_pixels + (1U << level) - 1) >> level) {}

    unsigned bands() const override { return 4; }
    double minX() const override { return 0.0; }
    double minY() const override { return 0.0; }
    double pixelSizeX() const override { return s_extent / pixels_; }
    double pixelSizeY() const override { return s_extent / pixels_; }
    std::uint64_t pixelsX() const override { return pixels_; }
    std::uint64_t pixelsY() const override { return pixels_; }
    unsigned granularityX() const override { return 128; }
    unsigned granularityY() const override { return 128; }
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override {
        const NBX::SO<NBX::MemoryImage> image(
            new NBX::MemoryImage(static_cast<int>(width), static_cast<int>(height), NBX::LS_RGBA));
        for (unsigned j = 0; j < height; ++j) {
            unsigned char * pixel = image->lineComponentsU8(static_cast<int>(j));
            for (unsigned i = 0; i < width; ++i, pixel += 4) {
                const unsigned u = (static_cast<unsigned>(x) + i) << level_;
                const unsigned v = (static_cast<unsigned>(y) + j) << level_;
                pixel[0] = static_cast<unsigned char>((u ^ v) >> 3);
                pixel[1] = static_cast<unsigned char>((u * v) >> 12);
                pixel[2] = static_cast<unsigned char>(level_ * 24);
                pixel[3] = 255;
            }
        }
        return image;
    }

private:
    unsigned level_;
    unsigned pixels_;
};

class ComputedPyramid : public ZMT::RASTER::TiledGeoImagePyramid {
    NBX_TEMPLATE_CLASS(ComputedPyramid, ZMT::RASTER::TiledGeoImagePyramid)
public:
    ComputedPyramid() {
        for (unsigned level = 0; (s_pixels >> level) > 0; ++level)
            levels_.emplace_back(new ComputedLevel(level));
    }
    double minX() const override { return 0.0; }
    double minY() const override { return 0.0; }
    double maxX() const override { return s_extent; }
    double maxY() const override { return s_extent; }
    unsigned overviews() const override { return static_cast<unsigned>(levels_.size()); }
    NBX::SO<ZMT::RASTER::TiledGeoImage> overview(unsigned index) const override { return levels_[index]; }

private:
    std::vector<NBX::SO<ZMT::RASTER::TiledGeoImage>> levels_;
};

/// One level of an image, stretched over the ground.
class StretchedLevel : public ZMT::RASTER::TiledGeoImage {
    NBX_TEMPLATE_CLASS(StretchedLevel, ZMT::RASTER::TiledGeoImage)
public:
    explicit StretchedLevel(const NBX::SO<ZMT::RASTER::TiledGeoImage> & level) : level_(level) {}
    unsigned bands() const override { return level_->bands(); }
    double minX() const override { return 0.0; }
    double minY() const override { return 0.0; }
    double pixelSizeX() const override { return s_extent / static_cast<double>(pixelsX()); }
    double pixelSizeY() const override { return s_extent / static_cast<double>(pixelsY()); }
    std::uint64_t pixelsX() const override { return level_->pixelsX(); }
    std::uint64_t pixelsY() const override { return level_->pixelsY(); }
    unsigned granularityX() const override { return level_->granularityX(); }
    unsigned granularityY() const override { return level_->granularityY(); }
    NBX::SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const override {
        return level_->createEmptyImage(width, height);
    }
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override {
        return level_->getImage(x, y, width, height);
    }

private:
    NBX::SO<ZMT::RASTER::TiledGeoImage> level_;
};

/// Counts the preparations, and those of the render thread.
class CountingPyramid : public ZMT::RASTER::TiledGeoImagePyramid {
    NBX_TEMPLATE_CLASS(CountingPyramid, ZMT::RASTER::TiledGeoImagePyramid)
public:
    explicit CountingPyramid(const ZMT::RASTER::TiledGeoImagePyramid & pyramid) {
        for (unsigned i = 0; i < pyramid.overviews(); ++i)
            levels_.emplace_back(new StretchedLevel(pyramid.overview(i)));
    }
    double minX() const override { return 0.0; }
    double minY() const override { return 0.0; }
    double maxX() const override { return s_extent; }
    double maxY() const override { return s_extent; }
    unsigned overviews() const override { return static_cast<unsigned>(levels_.size()); }
    NBX::SO<ZMT::RASTER::TiledGeoImage> overview(unsigned index) const override { return levels_[index]; }
    NBX::SO<ZMT::RASTER::GeoImage> getGeoImage(double minX, double minY, double maxX, double maxY,
                                               unsigned width, unsigned height) const override {
        ++preparations;
        if (std::this_thread::get_id() == renderThread_) ++waits;
        return TiledGeoImagePyramid::getGeoImage(minX, minY, maxX, maxY, width, height);
    }

    mutable std::atomic<int> preparations{0}, waits{0};

private:
    std::vector<NBX::SO<ZMT::RASTER::TiledGeoImage>> levels_;
    const std::thread::id renderThread_ = std::this_thread::get_id();
};

/// Of the calling thread: what it would have taken on an idle machine.
double processorTime() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// Adds the time of its life to two sums, by the clock and of the processor.
class Stopwatch {
public:
    Stopwatch(double & time, double & processor)
        : time_(time), processor_(processor), timeBefore_(NBXTime::now()), processorBefore_(processorTime()) {
    }
    Stopwatch(const Stopwatch &) = delete;
    Stopwatch & operator=(const Stopwatch &) = delete;
    ~Stopwatch() {
        time_ += NBXTime::now() - timeBefore_;
        processor_ += processorTime() - processorBefore_;
    }

private:
    double &time_, &processor_;
    const double timeBefore_, processorBefore_;
};

/// Another texture, whose time on the render thread is taken, with the uploads.
class TimedTexture : public TerrainTexture {
    NBX_TEMPLATE_CLASS(TimedTexture, TerrainTexture)
public:
    explicit TimedTexture(TerrainTexture * texture)
        : TerrainTexture(texture->minFilter(), texture->magFilter()), texture_(texture) {}

    bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                unsigned viewportHeight, const Point & eye, double textureError,
                bool inMotion) const override {
        const Stopwatch watch(time, processor);
        return texture_->refine(patch, viewInfo, viewportWidth, viewportHeight, eye, textureError, inMotion);
    }
    NBX::Bounds boundingBox() const override { return texture_->boundingBox(); }

    mutable double time = 0.0, processor = 0.0, uploadTime = 0.0;
    mutable int requests = 0, uploads = 0;
    mutable bool wasIncomplete = false;

protected:
    NBX::SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                        const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                        unsigned viewportHeight, double priority, const Point & eye,
                                        double textureError, bool inMotion, bool asynchronous,
                                        bool & incomplete) const override {
        const Stopwatch watch(time, processor);
        NBX::SO<NBX::TextureGL> result =
            texture_->request(patch, engine, viewInfo, viewportWidth, viewportHeight, priority, eye,
                              textureError, inMotion, asynchronous, incomplete);
        if (result && result->name() == 0) ++uploads;
        const double before = NBXTime::now();
        if (result) result->bind(engine);
        uploadTime += NBXTime::now() - before;
        ++requests;
        wasIncomplete = wasIncomplete || incomplete;
        return result;
    }

private:
    NBX::SO<TerrainTexture> texture_;
};

double residentMegabytes() {
    std::ifstream file("/proc/self/statm");
    long total = 0, resident = 0;
    file >> total >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1048576.0;
}

double quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1) + 0.5)];
}

NBX::SO<ZMT::RASTER::TiledGeoImagePyramid> chosenPyramid() {
    if (const char * path = std::getenv("FLYOVER_IMAGE")) return new ZMT::RASTER::ImageFilePyramid(path);
    return new ComputedPyramid;
}

NBX::SO<Terrain> makeTerrain() {
    const NBX::SO<GridData> grid(new GridData(makeSyntheticTerrain(s_cells).get()));
    std::srand(1);
    std::cerr.setstate(std::ios::failbit);
    const NBX::SO<GeometryPatch> root = CreateGeometryTree::create(grid.get(), s_maxVertices);
    std::cerr.clear();
    return new Terrain(grid.get(), root.get());
}

void flyOver(benchmark::State & state) {
    const NBX::SO<NBX::OffscreenCanvasGL> canvas(new NBX::OffscreenCanvasGL(1280, 720));
    if (!canvas->create()) {
        state.SkipWithError("no OpenGL context");
        return;
    }
    canvas->setRenderingMode(1);
    const NBX::SO<Terrain> terrain = makeTerrain();
    const NBX::SO<CountingPyramid> pyramid(new CountingPyramid(*chosenPyramid()));
    const NBX::SO<TimedTexture> texture(
        new TimedTexture(NBX::SO<TiledLODTexture>(new TiledLODTexture(pyramid.get())).get()));
    using Textures = NBX::Array<NBX::SO<TerrainTexture>>;
    const NBX::SO<Textures> textures(new Textures);
    textures->append(texture);
    const NBX::SO<DecalTerrainTexturingEffect> effect(new DecalTerrainTexturingEffect(textures.get()));

    const double residentBefore = residentMegabytes();
    std::vector<double> times, processorTimes, pacingTimes, uploadTimes, frameTimes, uploads;
    double textureMemory = 0.0, resident = 0.0;
    int incompleteFrames = 0, requests = 0;
    for (auto _ : state) {
        for (int frame = 0; frame < s_frames; ++frame) {
            const double t = static_cast<double>(frame) / s_frames;
            const Point eye(s_extent * (0.1 + 0.8 * t), 2600.0, s_extent * (0.15 + 0.3 * t));
            const NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
            scene->append(new NBX::Camera(new NBX::LookAt(eye, eye + Point(3000.0, -1500.0, 2500.0)),
                                          new NBX::Perspective(45.0, 50.0, 2.0 * s_extent)));
            scene->append(effect.get());
            scene->append(terrain.get());
            canvas->append(scene.get());
            texture->time = texture->processor = texture->uploadTime = 0.0;
            texture->requests = texture->uploads = 0;
            texture->wasIncomplete = false;

            const double before = NBXTime::now();
            canvas->redisplay();
            const double drawn = NBXTime::now();
            canvas->remove(scene.get());
            // The begin and the end of the frame lie inside the painter; another end stands for them. Both
            // give up the time slice, so that they take what others need it for.
            double pacing = 0.0;
            {
                const Stopwatch watch(pacing, texture->processor);
                TiledLODTexture::endFrame({nullptr, false});
            }
            pacingTimes.push_back(2000.0 * pacing);
            times.push_back(1000.0 * texture->time);
            processorTimes.push_back(1000.0 * texture->processor);
            uploadTimes.push_back(1000.0 * texture->uploadTime);
            frameTimes.push_back(1000.0 * (drawn - before));
            uploads.push_back(texture->uploads);
            requests += texture->requests;
            incompleteFrames += texture->wasIncomplete ? 1 : 0;
            textureMemory = std::max(textureMemory, double(TiledLODTexture::usedTextureMemory()));
            resident = std::max(resident, residentMegabytes());
        }
    }
    // The first frame prepares the root, whatever that takes.
    state.counters["first_ms"] = times.front();
    times.erase(times.begin());
    processorTimes.erase(processorTimes.begin());
    state.counters["texturing_median_ms"] = quantile(times, 0.5);
    state.counters["texturing_p99_ms"] = quantile(times, 0.99);
    state.counters["processor_median_ms"] = quantile(processorTimes, 0.5);
    state.counters["processor_p99_ms"] = quantile(processorTimes, 0.99);
    state.counters["pacing_median_ms"] = quantile(pacingTimes, 0.5);
    state.counters["upload_p99_ms"] = quantile(uploadTimes, 0.99);
    state.counters["frame_median_ms"] = quantile(frameTimes, 0.5);
    state.counters["uploads_p99"] = quantile(uploads, 0.99);
    state.counters["patches_per_frame"] = double(requests) / s_frames;
    state.counters["preparations"] = double(pyramid->preparations);
    state.counters["waits"] = double(pyramid->waits);
    state.counters["incomplete_frames"] = incompleteFrames;
    state.counters["texture_MiB"] = textureMemory / 1048576.0;
    state.counters["resident_MiB"] = resident;
    state.counters["resident_gain_MiB"] = resident - residentBefore;
}
BENCHMARK(flyOver)->Unit(benchmark::kSecond)->Iterations(1);

} // namespace
