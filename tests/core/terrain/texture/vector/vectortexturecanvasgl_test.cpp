#include "core/terrain/texture/vector/vectortexturecanvasgl.h"

#include <nbx/engine/clock.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/scene/attribute/contextdata.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/frame/terrainwatcher.h>

#include "vectortexturetest.h"

using NBX::SO;
using ZMT::CORE::TerrainScaling;
using ZMT::CORE::TerrainWatcher;
using ZMT::CORE::VectorTextureCanvasGL;
using ZMT::CORE::VectorTextureScopeGL;

namespace {

const NBX::ID s_flag("ZMT_VectorTexture_Attrib_Flag");

class VectorTextureCanvasGLTest : public VectorTextureFixture {
protected:
    void look(std::function<void(NBX::Engine &)> function) {
        const SO<NBX::SceneNode> node(new LookingNode(std::move(function)));
        scene->append(node.get());
        texture->clearCache();
        textureError = 0.0;
        request(*tree);
        scene->clear();
    }
};

TEST_F(VectorTextureCanvasGLTest, ThereIsOneForAllOfTheWantedSize) {
    const SO<NBX::GLCanvas> first = VectorTextureCanvasGL::canvas(65, canvas.get());
    EXPECT_TRUE(dynamic_cast<NBX::PBufferCanvasGL *>(first.get()));
    EXPECT_EQ(first->getWidth(), 65U);
    EXPECT_EQ(first->rootNodes(), 0U);
    EXPECT_EQ(VectorTextureCanvasGL::canvas(65, nullptr), first);
    const SO<NBX::GLCanvas> other = VectorTextureCanvasGL::canvas(32, nullptr);
    EXPECT_NE(other, first);
    EXPECT_EQ(other->getWidth(), 32U);
    EXPECT_EQ(first->references(), 1) << "nobody else keeps the old one";
    VectorTextureCanvasGL::release();
    EXPECT_EQ(other->references(), 1);
}

TEST_F(VectorTextureCanvasGLTest, TheClockDoesNotDrawIt) {
    const SO<NBX::GLCanvas> made = VectorTextureCanvasGL::canvas(65, nullptr);
    NBX::Clock * clock = NBX::Clock::systemClock();
    EXPECT_FALSE(clock->hasManager(made.get()));
    NBX::Canvas::postAllForRedisplay(0.0);
    clock->tick(clock->now());
    EXPECT_TRUE(made->redisplayPending());
}

TEST_F(VectorTextureCanvasGLTest, WithoutPixelBuffersItIsAnotherOneAndThatIsTold) {
    VectorTextureCanvasGL::allowPixelBuffers(false);
    const SO<NBX::GLCanvas> made = VectorTextureCanvasGL::canvas(65, canvas.get());
    EXPECT_TRUE(dynamic_cast<NBX::OffscreenCanvasGL *>(made.get()));
    EXPECT_EQ(VectorTextureCanvasGL::canvas(65, canvas.get()), made);
    EXPECT_EQ(reports.count(2, L"false",
                            L"no support for pbuffer canvas available, using the slower offscreen canvas "
                            L"instead"),
              1U)
        << reports;
    reports.clear();
}

TEST_F(VectorTextureCanvasGLTest, TheSceneCanTellATextureFromThePicture) {
    bool isTold = false;
    look([&](NBX::Engine & there) {
        const auto * flag = dynamic_cast<NBX::ContextData<bool> *>(there.getAttribute(s_flag));
        isTold = flag && flag->getValue();
    });
    EXPECT_TRUE(isTold);
    EXPECT_FALSE(engine->getAttribute(s_flag));
    EXPECT_FALSE(VectorTextureCanvasGL::canvas(65, nullptr)->engine()->getAttribute(s_flag));
}

TEST_F(VectorTextureCanvasGLTest, TheSceneFindsTheScalingOfHeights) {
    const SO<TerrainScaling> outer(new TerrainScaling({2.0, 3.0, 1.0})),
        inner(new TerrainScaling({1.0, 2.0, 1.0}));
    NBX::Vector3Base<double> seen;
    const NBX::AttributeScope outerScope(engine.get(), outer.get());
    {
        const NBX::AttributeScope innerScope(engine.get(), inner.get());
        look([&](NBX::Engine & there) {
            const auto * found =
                dynamic_cast<TerrainScaling *>(there.getAttribute(TerrainScaling::ClassNameNBX()));
            if (found) seen = found->getScaling();
        });
    }
    EXPECT_EQ(seen, (NBX::Vector3Base<double>(1.0, 6.0, 1.0)))
        << "of all, since they multiply; the plan is that of the terrain before it is scaled";
    EXPECT_FALSE(
        VectorTextureCanvasGL::canvas(65, nullptr)->engine()->getAttribute(TerrainScaling::ClassNameNBX()));
}

TEST_F(VectorTextureCanvasGLTest, TheWatcherKeepsTheViewOfTheTerrain) {
    for (const bool wasFrozen : {false, true}) {
        const SO<TerrainWatcher> watcher(new TerrainWatcher);
        const NBX::AttributeScope scope(engine.get(), watcher.get());
        watcher->setFreeze(wasFrozen);
        const auto viewBefore = watcher->viewinfo();
        const auto modelviewBefore = watcher->modelview();
        bool isSeen = false, isFrozen = false;
        look([&](NBX::Engine & there) {
            isSeen = there.getAttribute(TerrainWatcher::ClassNameNBX()) == watcher.get();
            isFrozen = watcher->getFreeze();
        });
        EXPECT_TRUE(isSeen);
        EXPECT_TRUE(isFrozen);
        EXPECT_EQ(watcher->getFreeze(), wasFrozen);
        EXPECT_EQ(watcher->viewinfo(), viewBefore);
        EXPECT_EQ(watcher->modelview(), modelviewBefore);
    }
}

TEST_F(VectorTextureCanvasGLTest, EverythingIsAsFoundAfterwards) {
    add(line(Point(0.0, 0.0, 0.0), Point(1024.0, 0.0, 1024.0)).get(), NBX::Color::red);
    textureError = 0.0;
    request(*tree);
    const std::vector<int> before = stateOfGL();
    const auto modelView = engine->modelViewMatrix();
    for (const bool onCard : {true, false}) {
        VectorTextureCanvasGL::allowPixelBuffers(onCard);
        texture->clearCache();
        request(*tree);
        EXPECT_EQ(stateOfGL(), before);
        EXPECT_TRUE(canvas->isContextCurrent());
        EXPECT_EQ(engine->modelViewMatrix(), modelView);
        const SO<NBX::GLCanvas> made = VectorTextureCanvasGL::canvas(65, nullptr);
        EXPECT_EQ(made->rootNodes(), 0U);
        ASSERT_TRUE(made->makeContextCurrent());
        const std::vector<int> own = stateOfGL();
        texture->clearCache();
        request(*tree);
        EXPECT_EQ(stateOfGL(), own);
        made->releaseContext();
    }
    reports.clear();
}

TEST_F(VectorTextureCanvasGLTest, AlsoWhereTheSceneThrows) {
    const SO<TerrainWatcher> watcher(new TerrainWatcher);
    const NBX::AttributeScope scope(engine.get(), watcher.get());
    EXPECT_THROW(look([](NBX::Engine &) { throw std::runtime_error("no more"); }), std::runtime_error);
    scene->clear();
    EXPECT_FALSE(watcher->getFreeze());
    EXPECT_FALSE(VectorTextureScopeGL::isActive());
    EXPECT_TRUE(canvas->isContextCurrent());
    EXPECT_EQ(VectorTextureCanvasGL::canvas(65, nullptr)->rootNodes(), 0U);
}

} // namespace
