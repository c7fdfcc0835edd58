#pragma once

#include <functional>
#include <vector>

#include <support/glfixture.h>

#include "../fakepyramid.h"
#include "core/terrain/texture/vector/vectortexturecanvasgl.h"
#include "core/terrain/texture/vector/vectortexturetables.h"
#include <nbx/container/sequence/array.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/lineset.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/texture/vector/vectortexture.h>

/// Notes the boxes that it is drawn for, and how often it was asked whether something is drawn.
class RecordingVectorTexture : public ZMT::CORE::VectorTexture {
    NBX_TEMPLATE_CLASS(RecordingVectorTexture, ZMT::CORE::VectorTexture)
public:
    using VectorTexture::VectorTexture;
    void render(NBX::GLCanvas * canvas, const NBX::Bounds & bbox) const override {
        boxes.push_back(bbox);
        VectorTexture::render(canvas, bbox);
    }
    mutable std::vector<NBX::Bounds> boxes;
    mutable unsigned timesAsked = 0;

protected:
    bool meets(const NBX::Bounds & area, NBX::EngineGL * engine) const override {
        ++timesAsked;
        return VectorTexture::meets(area, engine);
    }
};

/// Calls a function where it is drawn.
class LookingNode : public NBX::SceneNode {
    NBX_TEMPLATE_CLASS(LookingNode, NBX::SceneNode)
public:
    explicit LookingNode(std::function<void(NBX::Engine &)> look) : look_(std::move(look)) {}
    void evaluate(NBX::Engine * engine) override { look_(*engine); }
    NBX::Bounds boundingBox(NBX::Engine *) override { return {}; }

private:
    std::function<void(NBX::Engine &)> look_;
};

/// Vector textures over a square of 1024 units, whose textures have 65 texels along a side: a texel is a
/// 64th of its patch. The view is from above, a pixel for each unit.
class VectorTextureFixture : public GLFixture {
protected:
    using Bounds = NBX::Bounds;
    using GeometryPatch = ZMT::CORE::GeometryPatch;
    using Point = NBX::Vector3Base<double>;
    using Tables = ZMT::CORE::VectorTextureTables;
    using VectorTexture = ZMT::CORE::VectorTexture;
    template <class T> using SO = NBX::SO<T>;

    void SetUp() override {
        GLFixture::SetUp();
        ZMT::CORE::TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches() = Bounds();
        texture = newTexture();
        texture->setBufferSize(65);
        drawnBefore = VectorTexture::renderCount();
    }
    void TearDown() override {
        texture = nullptr;
        VectorTexture::setMaxTexturePatches(35);
        VectorTexture::setSamples(1);
        newTexture()->setBufferSize(1024);
        newTexture()->setInternalFormat(s_rgba4);
        ZMT::CORE::VectorTextureCanvasGL::allowPixelBuffers(true);
        VectorTexture::releaseSharedObjects();
        ZMT::CORE::TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches() = Bounds();
        EXPECT_EQ(Tables::instance().queueLength(), 0U);
        EXPECT_EQ(Tables::instance().textureCount(), 0U);
        GLFixture::TearDown();
    }

    SO<RecordingVectorTexture> newTexture(bool caching = true, bool culling = false, unsigned maxDepth = 10) {
        return new RecordingVectorTexture(scene.get(), square, false, false, caching, culling, maxDepth, 0);
    }

    static void begin(NBX::Engine * engine, bool inMotion = false) {
        VectorTexture::beginFrame({engine, inMotion});
    }
    static void end(NBX::Engine * engine, bool inMotion = false) {
        VectorTexture::endFrame({engine, inMotion});
    }

    SO<NBX::TextureGL> request(const VectorTexture & asked, const GeometryPatch * patch) {
        incomplete = false;
        return asked.request(patch, engine.get(), view.get(), 1000, 1000, priority, eye, textureError,
                             inMotion, asynchronous, incomplete);
    }
    SO<NBX::TextureGL> request(const GeometryPatch & patch) { return request(*texture, &patch); }
    /// Pictures that show nothing of the texture.
    void passPictures(unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            begin(engine.get());
            end(engine.get());
        }
    }
    unsigned long drawn() const { return VectorTexture::renderCount() - drawnBefore; }

    /// The first child of the first child, `depth` times.
    SO<GeometryPatch> below(unsigned depth) const {
        SO<GeometryPatch> patch(tree.get());
        for (unsigned i = 0; i < depth; ++i)
            patch = patch->child(0);
        return patch;
    }

    static SO<NBX::LineSet> line(const Point & from, const Point & to) {
        SO<NBX::LineSet> set(
            new NBX::LineSet(NBX::LineSet::PT_Lines, new NBX::Array<Point>(std::vector<Point>{from, to})));
        return set;
    }
    static SO<NBX::PolygonSet> area(const Bounds & box, double height = 0.0) {
        const Point & a = box.getLLF();
        const Point & b = box.getURB();
        return new NBX::PolygonSet(
            NBX::PolygonSet::PT_Quads,
            new NBX::Array<Point>(std::vector<Point>{Point(a.x, height, a.z), Point(b.x, height, a.z),
                                                     Point(b.x, height, b.z), Point(a.x, height, b.z)}));
    }
    /// Appends a shape in a colour to the scene.
    void add(NBX::Shape * shape, const NBX::Color & color) {
        const SO<NBX::SceneThing> thing(new NBX::SceneThing(scene.get()));
        thing->append(new NBX::ColorAttribute(color));
        thing->append(shape);
    }

    static constexpr unsigned s_rgba4 = 32854, s_rgba8 = 32856;

    const SO<NBX::SceneThing> scene{new NBX::SceneThing};
    const Bounds square{Point(0.0, 0.0, 0.0), Point(1024.0, 0.0, 1024.0)};
    const SO<FakePatch> tree = FakePatch::oblong(0.0, 0.0, 1024.0, 1024.0, 5);
    SO<RecordingVectorTexture> texture;
    SO<NBX::ViewInfo> view = viewFromAbove(1.0);
    Point eye{10.0, 0.0, 10.0};
    double priority = 1.0, textureError = 0.001;
    bool inMotion = false, asynchronous = false, incomplete = false;
    unsigned long drawnBefore = 0;
};
