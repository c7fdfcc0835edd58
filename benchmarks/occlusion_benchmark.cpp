// Light of a synthetic terrain of 1025 by 1025 heights in a texture of 1024 by 1024 texels, next to the bare
// drawing of its passes: the same triangles as strips in one buffer of vertices and one of indices, painted
// as often into the same targets by the same program, with the same shadow map, comparison and blending, and
// nothing done between. Times are those of the processors for the whole process, since software renderers
// draw on threads of their own; that of the light has all that it takes, from the tree of the terrain to the
// picture. ZMT_OCCLUSION_DIRECTIONS takes the place of 15 and 30 directions, and makes it one pair.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <vector>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/image/image.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/viewport.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/base/stripmesh.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/util/occlusion/ambientocclusion.h>

#include "syntheticterrain.h"
#include "util/occlusion/aoimpl.h"
#include "util/occlusion/fbolighttargetsgl.h"
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

struct Landscape {
    SO<NBX::OffscreenCanvasGL> canvas{new NBX::OffscreenCanvasGL(16, 16)};
    SO<ZMT::CORE::GridData> grid{new ZMT::CORE::GridData(makeSyntheticTerrain(s_cells).get())};
    SO<ZMT::CORE::Terrain> terrain{
        new ZMT::CORE::Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 16641).get())};
    AOImpl::TerrainStep step;

    Landscape() {
        ZMT::CORE::GeoTransformation::setNBXOrigin(terrain->origin());
        step = {terrain, nullptr, terrain->boundingBox(), s_size};
    }
};

Landscape & landscape() {
    static auto * made = new Landscape;
    return *made;
}

LightList sky(int directions) {
    AmbientOcclusion::LightingConfiguration configuration;
    configuration.numSkyDirections = directions;
    std::srand(1);
    return LightList::combined(configuration);
}

/// A run, and what it came to.
struct Baked {
    double seconds = 0.0, mean = 0.0;

    void measure(const SO<NBX::Image> & image) {
        for (int y = 0; y < image->height(); ++y)
            for (int x = 0; x < image->width(); ++x)
                mean += double(*static_cast<const float *>(std::as_const(*image).pixelComponents(x, y, 1)));
        mean /= double(image->width()) * image->height();
    }
};

Baked wholeLight(const LightList & lights) {
    Baked baked;
    const std::clock_t start = std::clock();
    const SO<NBX::Image> image = newAOImpl(landscape().canvas)->render(landscape().step, lights, nullptr);
    baked.seconds = secondsSince(start);
    baked.measure(image);
    return baked;
}

/// The triangles of the grid on the card.
class BareMesh {
public:
    explicit BareMesh(ZMT::CORE::GridData & grid) {
        const unsigned cells = grid.sizeX() - 1;
        const SO<ZMT::CORE::GridPatch> patch(
            new ZMT::CORE::GridPatch(&grid, NBX::Area(0, 0, cells, cells), NBX::Bounds(), 0.0, 0.0, nullptr));
        const NBX::Vector3Base<double> toLocal = grid.origin();
        const ZMT::CORE::StripMesh mesh = patch->surface(toLocal);
        std::vector<float> numbers;
        numbers.reserve(mesh.vertices.size() * 6);
        for (unsigned y = 0; y < grid.sizeY(); ++y)
            for (unsigned x = 0; x < grid.sizeX(); ++x)
                for (const auto & v : {mesh.vertices[std::size_t(y) * grid.sizeX() + x], grid.normal(x, y)})
                    numbers.insert(numbers.end(), {float(v.x), float(v.y), float(v.z)});
        glGenBuffers(2, buffers_);
        glBindBuffer(GL_ARRAY_BUFFER, buffers_[0]);
        glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(numbers.size() * sizeof(float)), numbers.data(),
                     GL_STATIC_DRAW);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, buffers_[1]);
        glBufferData(GL_ELEMENT_ARRAY_BUFFER, GLsizeiptr(mesh.strips.indices.size() * sizeof(GLuint)),
                     mesh.strips.indices.data(), GL_STATIC_DRAW);
        std::size_t begin = 0;
        for (const std::size_t end : mesh.strips.ranges) {
            counts_.push_back(GLsizei(end - begin));
            offsets_.push_back(reinterpret_cast<const void *>(begin * sizeof(GLuint)));
            begin = end;
        }
        glEnableClientState(GL_VERTEX_ARRAY);
        glEnableClientState(GL_NORMAL_ARRAY);
        glVertexPointer(3, GL_FLOAT, 6 * sizeof(float), nullptr);
        glNormalPointer(GL_FLOAT, 6 * sizeof(float), reinterpret_cast<const void *>(3 * sizeof(float)));
    }
    ~BareMesh() {
        glDisableClientState(GL_NORMAL_ARRAY);
        glDisableClientState(GL_VERTEX_ARRAY);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
        glDeleteBuffers(2, buffers_);
    }
    BareMesh(const BareMesh &) = delete;
    BareMesh & operator=(const BareMesh &) = delete;

    void draw() const {
        glMultiDrawElements(GL_TRIANGLE_STRIP, counts_.data(), GL_UNSIGNED_INT, offsets_.data(),
                            GLsizei(counts_.size()));
    }

private:
    GLuint buffers_[2] = {};
    std::vector<GLsizei> counts_;
    std::vector<const void *> offsets_;
};

/// The uniforms of a direction, for the program in use.
void setLight(const LightCamera & camera, const LitSceneGL::Matrix & fromReceiver,
              const NBX::Vector3Base<double> & color) {
    GLint program = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    const auto place = [program](const std::string & name) {
        return glGetUniformLocation(GLuint(program), name.c_str());
    };
    const LitSceneGL::Matrix view = camera.view() * fromReceiver, whole = camera.projection() * view;
    for (unsigned i = 0; i < 4; ++i)
        glUniform4f(place("mvp" + std::to_string(i)), float(whole(i, 0)), float(whole(i, 1)),
                    float(whole(i, 2)), float(whole(i, 3)));
    for (unsigned i = 0; i < 3; ++i) {
        const float sign = i == 2 ? -1.0F : 1.0F;
        glUniform3f(place("mvit" + std::to_string(i)), sign * float(view(i, 0)), sign * float(view(i, 1)),
                    sign * float(view(i, 2)));
    }
    glUniform3f(place("intensityPerLightDir"), float(color.x), float(color.y), float(color.z));
}

Baked barePasses(const LightList & lights) {
    Landscape & l = landscape();
    l.canvas->makeContextCurrent();
    NBX::EngineGL * engine = l.canvas->engine().get();
    const LitSceneGL scene = newLitSceneGL(l.step);
    const LitSceneGL::Matrix fromReceiver = scene.receiverView.inverse();
    Baked baked;
    {
        FboLightTargetsGL targets(engine, s_size, s_size);
        const BareMesh mesh(*l.grid);
        const SO<NBX::Viewport> viewport(new NBX::Viewport(NBX::Area(0, 0, s_size, s_size)));
        engine->push(viewport.get());
        glPushAttrib(GL_ALL_ATTRIB_BITS);
        glDisable(GL_LIGHTING);
        glPolygonOffset(1.0F, 1.0F);
        glBlendFunc(GL_ONE, GL_ONE);
        glFinish();
        const std::clock_t start = std::clock();
        for (std::size_t i = 0; i < lights.directions.size(); ++i) {
            const LightCamera camera(scene.lit, scene.casting, lights.directions[i]);
            targets.beginDepth();
            glEnable(GL_DEPTH_TEST);
            glEnable(GL_POLYGON_OFFSET_FILL);
            glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
            engine->pushCamera(camera.view(), camera.projection());
            mesh.draw();
            engine->popCamera();
            glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
            glDisable(GL_POLYGON_OFFSET_FILL);
            targets.endDepth();

            targets.beginLight();
            glDisable(GL_DEPTH_TEST);
            glEnable(GL_BLEND);
            engine->pushCamera(scene.receiverView, scene.receiverProjection);
            engine->push(scene.program.get());
            glActiveTexture(GL_TEXTURE0);
            targets.shadowMap().bind(engine);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_COMPARE_MODE, GL_COMPARE_R_TO_TEXTURE);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_COMPARE_FUNC, GL_LEQUAL);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
            setLight(camera, fromReceiver, lights.colors[i]);
            mesh.draw();
            glBindTexture(GL_TEXTURE_2D, 0);
            engine->pop(scene.program.get());
            engine->popCamera();
            glDisable(GL_BLEND);
            targets.endLight();
        }
        glFinish();
        baked.seconds = secondsSince(start);
        glPopAttrib();
        engine->pop(viewport.get());
        baked.measure(targets.read());
    }
    l.canvas->releaseContext();
    return baked;
}

void BM_OcclusionOfATerrain(benchmark::State & state) {
    const LightList few = sky(4), lights = sky(static_cast<int>(state.range(0)));
    const double expected = wholeLight(few).mean, drawn = barePasses(few).mean;
    if (!(std::abs(drawn - expected) < 0.005 * expected)) return state.SkipWithError("other pictures");
    double bare = 0.0, whole = 0.0;
    for (auto _ : state) {
        bare += barePasses(lights).seconds;
        const double seconds = wholeLight(lights).seconds;
        state.SetIterationTime(seconds);
        whole += seconds;
    }
    const auto runs = double(state.iterations());
    state.counters["bare_s"] = bare / runs;
    state.counters["whole_s"] = whole / runs;
    state.counters["ratio"] = whole / bare;
}
BENCHMARK(BM_OcclusionOfATerrain)->UseManualTime()->Unit(benchmark::kSecond)->Apply([](auto * all) {
    if (const char * number = std::getenv("ZMT_OCCLUSION_DIRECTIONS"))
        all->Arg(std::atoi(number))->Iterations(1);
    else
        all->Arg(15)->Arg(30)->Iterations(3);
});

} // namespace
