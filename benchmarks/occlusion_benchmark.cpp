// Light of a synthetic terrain of 1025 by 1025 heights from 300 directions, in a texture of 1024 by 1024
// texels, next to the bare drawing of its passes: the same terrain, painted as often by the same painter into
// a shadow map, and by the same program into colours, with nothing done between. Times are those of the
// processors for the whole process, since software renderers draw on threads of their own.
// ZMT_OCCLUSION_DIRECTIONS takes the place of 300.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <ctime>

#include <GL/glew.h>

#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/gl/offscreen/rendertexturegl.h>
#include <nbx/image/image.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/viewport.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/util/occlusion/ambientocclusion.h>

#include "syntheticterrain.h"
#include "util/occlusion/aoimpl.h"
#include "util/occlusion/lightcamera.h"
#include "util/occlusion/litscenesgl.h"

using NBX::SO;
using namespace ZMT::UTIL;

namespace {

/// Of the processors.
double secondsSince(std::clock_t start) {
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

constexpr unsigned s_cells = 1025, s_size = 1024;

int directions() {
    const char * number = std::getenv("ZMT_OCCLUSION_DIRECTIONS");
    return number ? std::atoi(number) : 300;
}

struct Landscape {
    SO<NBX::OffscreenCanvasGL> canvas{new NBX::OffscreenCanvasGL(16, 16)};
    SO<ZMT::CORE::GridData> grid{new ZMT::CORE::GridData(makeSyntheticTerrain(s_cells).get())};
    SO<ZMT::CORE::Terrain> terrain{
        new ZMT::CORE::Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 16641).get())};
    AOImpl::TerrainStep step;
    LightList lights;

    Landscape() {
        ZMT::CORE::GeoTransformation::setNBXOrigin(terrain->origin());
        step = {terrain, nullptr, terrain->boundingBox(), s_size};
        AmbientOcclusion::LightingConfiguration configuration;
        configuration.numSkyDirections = directions();
        std::srand(1);
        lights = LightList::combined(configuration);
    }
};

Landscape & landscape() {
    static auto * made = new Landscape;
    return *made;
}

double wholeLight() {
    const std::clock_t start = std::clock();
    if (!newAOImpl(landscape().canvas)->render(landscape().step, landscape().lights, nullptr)) std::abort();
    return secondsSince(start);
}

/// Where the passes are drawn.
struct BareTarget {
    SO<NBX::FrameBufferObjectGL> buffer;
    SO<NBX::RenderTextureGL> texture;

    BareTarget(NBX::EngineGL * engine, unsigned type, unsigned format)
        : buffer(new NBX::FrameBufferObjectGL(engine, s_size, s_size)),
          texture(new NBX::RenderTextureGL(engine, s_size, s_size, type, format)) {
        texture->attachTo(buffer.get());
    }
};

double barePasses() {
    Landscape & l = landscape();
    l.canvas->makeContextCurrent();
    NBX::EngineGL * engine = l.canvas->engine().get();
    const LitSceneGL scene = newLitSceneGL(l.step);
    const BareTarget depth(engine, GL_FLOAT, GL_DEPTH_COMPONENT), colors(engine, GL_HALF_FLOAT, GL_RGBA);
    const double before = ZMT::CORE::TerrainPainterGLSettings::getGeometryError();
    ZMT::CORE::TerrainPainterGLSettings::setGeometryError(0.0);
    const SO<NBX::Viewport> viewport(new NBX::Viewport(NBX::Area(0, 0, s_size, s_size)));
    engine->push(viewport.get());
    glFinish();
    const std::clock_t start = std::clock();
    for (const NBX::Vector3Base<double> & direction : l.lights.directions) {
        const LightCamera camera(scene.lit, scene.casting, direction);
        depth.buffer->bind(engine);
        glClear(GL_DEPTH_BUFFER_BIT);
        engine->pushCamera(camera.view(), camera.projection());
        engine->evaluate(scene.casters.get());
        engine->popCamera();
        depth.buffer->unbind(engine);
        colors.buffer->bind(engine);
        engine->pushCamera(scene.receiverView, scene.receiverProjection);
        engine->push(scene.program.get());
        glDisable(GL_DEPTH_TEST);
        engine->evaluate(scene.receiver.get());
        glEnable(GL_DEPTH_TEST);
        engine->pop(scene.program.get());
        engine->popCamera();
        colors.buffer->unbind(engine);
    }
    glFinish();
    const double seconds = secondsSince(start);
    engine->pop(viewport.get());
    ZMT::CORE::TerrainPainterGLSettings::setGeometryError(before);
    l.canvas->releaseContext();
    return seconds;
}

void BM_OcclusionOfATerrain(benchmark::State & state) {
    landscape();
    barePasses(); // records the lists of the patches
    for (auto _ : state) {
        const double bare = barePasses(), whole = wholeLight();
        state.SetIterationTime(whole);
        state.counters["bare_s"] = bare;
        state.counters["whole_s"] = whole;
        state.counters["ratio"] = whole / bare;
        state.counters["directions"] = directions();
    }
}
BENCHMARK(BM_OcclusionOfATerrain)->UseManualTime()->Iterations(1)->Unit(benchmark::kSecond);

} // namespace
