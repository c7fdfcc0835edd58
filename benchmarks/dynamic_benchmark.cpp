// Scenes that change for each picture, on a synthetic terrain: 10 000 segments that move, by a
// `DynamicVectorTexture` in pictures of 1280 by 720, next to the terrain without them and to the bare drawing
// of the segments on a canvas of the texture's size; and height renderings, by meshes of 128 by 128 and of
// 1024 by 1024 vertices. Times are of the whole process, since software renderers draw on threads of their
// own, and end where everything is drawn.

#include <zmt/core/terrain/texture/dynamic/dynamicheighttexturerendering.h>
#include <zmt/core/terrain/texture/dynamic/dynamicvectortexture.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/texture/texture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/linestyle.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/lineset.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>

#include "syntheticterrain.h"

using NBX::SO;
using namespace ZMT::CORE;

namespace {

using Point = NBX::Vector3Base<double>;

constexpr unsigned s_cells = 513, s_segments = 10000;
constexpr unsigned s_width = 1280, s_height = 720;

/// With a fifth of the synthetic heights, which a height rendering takes.
const SO<GridData> & grid() {
    static const SO<GridData> made = [] {
        const auto raster = makeSyntheticTerrain(s_cells);
        for (std::size_t i = 0; i < std::size_t(s_cells) * s_cells; ++i)
            raster->cells()[i] *= 0.2F;
        return SO<GridData>(new GridData(raster.get()));
    }();
    return made;
}

/// Segments all over a box, which move a little with each picture.
class MovingSegments {
public:
    explicit MovingSegments(const NBX::Bounds & box) : box_(box), vertices_(new NBX::Array<Point>) {
        for (unsigned i = 0; i < 2 * s_segments; ++i)
            vertices_->append(Point());
        set_ = new NBX::LineSet(NBX::LineSet::PT_Lines, vertices_);
        scene->append(new NBX::ColorAttribute(NBX::Color(0.8, 0.1, 0.0)));
        scene->append(new NBX::LineStyle(2.0));
        scene->append(set_.get());
        move();
    }
    void move() {
        time_ += 0.01;
        for (unsigned i = 0; i < s_segments; ++i) {
            const double u = std::fmod(i * 0.618034, 1.0), v = double(i) / s_segments, turn = i + time_;
            const Point middle = box_.point(u, 0.0, v);
            const Point half(60.0 * std::cos(turn), 0.0, 60.0 * std::sin(turn));
            vertices_->set(2 * i, Point(middle.x, 0.0, middle.z) - half);
            vertices_->set(2 * i + 1, Point(middle.x, 0.0, middle.z) + half);
        }
        set_->modified();
    }
    const SO<NBX::SceneThing> scene{new NBX::SceneThing};

private:
    NBX::Bounds box_;
    SO<NBX::Array<Point>> vertices_;
    SO<NBX::LineSet> set_;
    double time_ = 0.0;
};

/// A canvas that looks across the terrain.
struct Picture {
    Picture() {
        const NBX::Bounds box = grid()->boundingBox();
        const Point from = box.point(0.5, 6.0, -0.1), to = box.point(0.5, 0.5, 0.5);
        root->append(new NBX::Camera(new NBX::LookAt(from, to, {0.0, 1.0, 0.0}),
                                     new NBX::Perspective(45.0, 10.0, 40000.0), NBX::Camera::S_Global));
        canvas->append(root.get());
    }
    void draw() const {
        canvas->redisplay();
        // Ends where all is drawn.
        canvas->snapshot(corner.get());
    }
    const SO<NBX::OffscreenCanvasGL> canvas{new NBX::OffscreenCanvasGL(s_width, s_height)};
    const SO<NBX::SceneThing> root{new NBX::SceneThing};
    const SO<NBX::MemoryImage> corner{new NBX::MemoryImage(1, 1, NBX::LS_RGBA)};
};

SO<Terrain> newTerrain() {
    return new Terrain(grid().get(), CreateGeometryTree::create(grid().get(), 64).get());
}

void terrainAlone(benchmark::State & state) {
    const Picture picture;
    picture.root->append(newTerrain().get());
    picture.draw();
    for (auto _ : state)
        picture.draw();
}
BENCHMARK(terrainAlone)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

/// The argument is the side of the texture.
void movingSegments(benchmark::State & state) {
    const Picture picture;
    MovingSegments segments(grid()->boundingBox());
    const SO<DynamicVectorTexture> texture(
        new DynamicVectorTexture(SO<NBX::SceneNode>(segments.scene.get())));
    texture->setTextureSize(unsigned(state.range(0)));
    using Textures = NBX::Array<SO<TerrainTexture>>;
    picture.root->append(new DecalTerrainTexturingEffect(
        new Textures(std::vector<SO<TerrainTexture>>{SO<TerrainTexture>(texture.get())})));
    picture.root->append(newTerrain().get());
    picture.draw();
    const unsigned long before = texture->renderCount();
    for (auto _ : state) {
        segments.move();
        picture.draw();
    }
    state.counters["drawings a picture"] =
        double(texture->renderCount() - before) / double(state.iterations());
}
BENCHMARK(movingSegments)
    ->Arg(1024)
    ->Arg(2048)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

/// The segments from above, with a copy of the picture to a texture with mipmaps.
void segmentsAlone(benchmark::State & state) {
    const auto size = unsigned(state.range(0));
    const NBX::Bounds box = grid()->boundingBox();
    MovingSegments segments(box);
    const SO<NBX::PBufferCanvasGL> canvas(new NBX::PBufferCanvasGL(size, size));
    const Point middle = box.center(), half = box.diagonal() * 0.5;
    segments.scene->prepend(new NBX::Camera(
        new NBX::LookAt({middle.x, 5000.0, middle.z}, {middle.x, 0.0, middle.z}, {0.0, 0.0, 1.0}),
        new NBX::Ortho(-half.x, half.x, -half.z, half.z, 1.0, 10000.0), NBX::Camera::S_Global));
    canvas->append(segments.scene.get());
    canvas->redisplay();
    const auto texture = canvas->newTexture(0, true);
    const SO<NBX::MemoryImage> corner(new NBX::MemoryImage(1, 1, NBX::LS_RGBA));
    for (auto _ : state) {
        segments.move();
        canvas->redisplay();
        canvas->updateTexture(texture.get());
        canvas->snapshot(corner.get());
    }
}
BENCHMARK(segmentsAlone)
    ->Arg(1024)
    ->Arg(2048)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

/// Of another number of vertices.
class SizedRendering : public DynamicHeightTextureRendering {
    NBX_TEMPLATE_CLASS(SizedRendering, DynamicHeightTextureRendering)
public:
    SizedRendering(const NBX::Bounds & terrain, unsigned size)
        : DynamicHeightTextureRendering(terrain, size) {}
};

/// The argument is the number of vertices of a side of the mesh that is drawn.
void heightRendering(benchmark::State & state) {
    const Picture picture;
    const SO<SizedRendering> rendering(new SizedRendering(grid()->boundingBox(), unsigned(state.range(0))));
    rendering->terrainHeightSceneGraph()->append(
        DynamicHeightTextureRendering::CreateRasterHeightShape(
            DynamicHeightTextureRendering::CreateHeightTexture(grid().get(), rendering->heightLevel()))
            .get());
    rendering->setLightDirection({-0.5, 0.3, 0.8});
    picture.root->append(rendering.get());
    picture.draw();
    if (!rendering->lastStatistics().seesGround()) state.SkipWithError("no ground in view");
    for (auto _ : state)
        picture.draw();
}
BENCHMARK(heightRendering)
    ->Arg(128)
    ->Arg(1024)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
