// Flying over contours that drape a terrain of 1025 by 1025 cells: 300 frames of 1280 by 720, how many
// textures are drawn in each, what the overlay takes of the render thread outside of OpenGL, and how long the
// first view takes until it is at rest. The contours are made by GDAL, at the interval that gives 765 000
// points.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <gdal.h>
#include <gdal_alg.h>
#include <ogr_api.h>
#include <unistd.h>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/object/nbxtime.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/vector/vectoroverlaytexture.h>
#include <zmt/raster/gdal/vector/featurefile.h>

#include "syntheticterrain.h"
#include "timedgl.h"

namespace {

using namespace ZMT::CORE;
using NBX::SO;
using Point = NBX::Vector3Base<double>;

constexpr int s_cells = 1025, s_frames = 300;
constexpr double s_cell = 30.0, s_extent = (s_cells - 1) * s_cell;
constexpr unsigned s_texelFormat = 32856; // GL_RGBA8

const char * interval() {
    const char * metres = std::getenv("OVERLAYFLIGHT_INTERVAL");
    return metres ? metres : "4.37";
}

/// The file of the contours; `points` becomes the number of their points.
std::string makeContours(const ZMT::RASTER::SimpleRasterData<float> & heights, double & points) {
    GDALAllRegister();
    const std::string path = "/tmp/overlayflight_" + std::to_string(getpid()) + ".gpkg";
    const GDALDatasetH raster =
        GDALCreate(GDALGetDriverByName("MEM"), "", s_cells, s_cells, 1, GDT_Float32, nullptr);
    // The first row is the southern one.
    double place[6] = {-0.5 * s_cell, s_cell, 0.0, -0.5 * s_cell, 0.0, s_cell};
    GDALSetGeoTransform(raster, place);
    const GDALRasterBandH band = GDALGetRasterBand(raster, 1);
    std::vector<float> cells(heights.cells(), heights.cells() + std::size_t(s_cells) * s_cells);
    bool isDone = GDALRasterIO(band, GF_Write, 0, 0, s_cells, s_cells, cells.data(), s_cells, s_cells,
                               GDT_Float32, 0, 0) == CE_None;
    const GDALDatasetH file =
        GDALCreate(GDALGetDriverByName("GPKG"), path.c_str(), 0, 0, 0, GDT_Unknown, nullptr);
    const OGRLayerH layer = GDALDatasetCreateLayer(file, "contours", nullptr, wkbLineString, nullptr);
    std::string distance = std::string("LEVEL_INTERVAL=") + interval();
    char * options[] = {distance.data(), nullptr};
    GDALDatasetStartTransaction(file, 0);
    isDone = isDone && GDALContourGenerateEx(band, layer, options, nullptr, nullptr) == CE_None;
    GDALDatasetCommitTransaction(file);
    points = 0.0;
    OGR_L_ResetReading(layer);
    while (const OGRFeatureH feature = OGR_L_GetNextFeature(layer)) {
        points += OGR_G_GetPointCount(OGR_F_GetGeometryRef(feature));
        OGR_F_Destroy(feature);
    }
    GDALClose(file);
    GDALClose(raster);
    if (!isDone) std::cerr << "no contours in " << path << '\n';
    return path;
}

/// Of the calling thread, without what OpenGL takes.
double ownTime() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec) - TimedGL::seconds;
}

/// Takes the time of its requests.
class TimedOverlay : public VectorOverlayTexture {
    NBX_TEMPLATE_CLASS(TimedOverlay, VectorOverlayTexture)
public:
    using VectorOverlayTexture::VectorOverlayTexture;
    mutable double time = 0.0;

protected:
    SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                   const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                   unsigned viewportHeight, double priority, const Point & eye,
                                   double textureError, bool inMotion, bool asynchronous,
                                   bool & incomplete) const override {
        const double before = ownTime();
        SO<NBX::TextureGL> result = VectorOverlayTexture::requestImpl(
            patch, engine, viewInfo, viewportWidth, viewportHeight, priority, eye, textureError, inMotion,
            asynchronous, incomplete);
        time += ownTime() - before;
        return result;
    }
};

double quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1) + 0.5)];
}

void flight(benchmark::State & state, bool caching) {
    const SO<NBX::OffscreenCanvasGL> canvas(new NBX::OffscreenCanvasGL(1280, 720));
    if (!canvas->makeContextCurrent()) return state.SkipWithError("no OpenGL context");
    installTimedGL();
    canvas->releaseContext();
    const auto heights = makeSyntheticTerrain(s_cells);
    const SO<GridData> grid(new GridData(heights.get()));
    std::cerr.setstate(std::ios::failbit);
    const SO<Terrain> terrain(new Terrain(grid.get(), CreateGeometryTree::create(grid.get(), 4000).get()));
    std::cerr.clear();
    GeoTransformation::setNBXOrigin(grid->origin());
    double points = 0.0;
    const std::string path = makeContours(*heights, points);
    const auto source = std::make_shared<const ZMT::RASTER::FeatureFile>(path);
    SO<TimedOverlay> overlay(new TimedOverlay({SO<VectorOverlay>(new VectorOverlay(source))},
                                              LocalFrame(grid->origin()), terrain->boundingBox()));
    overlay->setCaching(caching);
    overlay->setInternalFormat(s_texelFormat);
    using Textures = NBX::Array<SO<TerrainTexture>>;
    const SO<DecalTerrainTexturingEffect> effect(new DecalTerrainTexturingEffect(
        new Textures(std::vector<SO<TerrainTexture>>{SO<TerrainTexture>(overlay.get())})));
    const auto draw = [&](int frame) {
        const double t = static_cast<double>(frame) / s_frames;
        const Point eye = Point(s_extent * (0.1 + 0.8 * t), 2600.0, s_extent * (0.15 + 0.3 * t)) -
                          Point(0.0, grid->origin().y, 0.0);
        const SO<NBX::SceneThing> scene(new NBX::SceneThing);
        scene->append(new NBX::Camera(new NBX::LookAt(eye, eye + Point(3000.0, -1500.0, 2500.0)),
                                      new NBX::Perspective(45.0, 50.0, 2.0 * s_extent)));
        scene->append(effect.get());
        scene->append(terrain.get());
        canvas->append(scene.get());
        canvas->redisplay();
        canvas->remove(scene.get());
    };
    std::vector<double> renders, times, frameTimes;
    for (auto _ : state) {
        canvas->setRenderingMode(0);
        const double start = NBX::NBXTime::now();
        for (unsigned long before = ~0UL; before != VectorTexture::renderCount();) {
            before = VectorTexture::renderCount();
            draw(0);
        }
        state.counters["to_rest_s"] = NBX::NBXTime::now() - start;
        canvas->setRenderingMode(1);
        for (int frame = 1; frame <= s_frames; ++frame) {
            const unsigned long before = VectorTexture::renderCount();
            overlay->time = 0.0;
            const double frameBefore = ownTime();
            draw(frame);
            frameTimes.push_back(1000.0 * (ownTime() - frameBefore));
            times.push_back(1000.0 * overlay->time);
            renders.push_back(static_cast<double>(VectorTexture::renderCount() - before));
        }
    }
    state.counters["points"] = points;
    state.counters["renders_min"] = quantile(renders, 0.0);
    state.counters["renders_median"] = quantile(renders, 0.5);
    state.counters["renders_max"] = quantile(renders, 1.0);
    state.counters["overlay_median_ms"] = quantile(times, 0.5);
    state.counters["overlay_p99_ms"] = quantile(times, 0.99);
    state.counters["frame_median_ms"] = quantile(frameTimes, 0.5);
    state.counters["frame_p99_ms"] = quantile(frameTimes, 0.99);
    overlay = nullptr;
    VectorTexture::releaseSharedObjects();
    std::remove(path.c_str());
}

void cached(benchmark::State & state) {
    flight(state, true);
}
void uncached(benchmark::State & state) {
    flight(state, false);
}
BENCHMARK(cached)->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(uncached)->Unit(benchmark::kSecond)->Iterations(1);

} // namespace
