#include <nbx/gl/context/enginegl.h>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/shapepainter.h>
#include <nbx/gl/context/contextgl.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/tf.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class EngineGLTest : public GLFixture {
protected:
    void TearDown() override {
        EngineGL::setMaxTextureUnitsLimit(0);
        GLFixture::TearDown();
    }
    static void compile(unsigned list) {
        glNewList(list, GL_COMPILE);
        glEndList();
    }
};

TEST_F(EngineGLTest, LimitsTheTextureUnits) {
    const unsigned all = engine->maxTextureUnits();
    EXPECT_GE(all, 2U);
    EngineGL::setMaxTextureUnitsLimit(1);
    EXPECT_EQ(1U, engine->maxTextureUnits());
    EXPECT_EQ(all, engine->textureCoordinateSets());
    EngineGL::setMaxTextureUnitsLimit(all + 5);
    EXPECT_EQ(all, engine->maxTextureUnits());
    EngineGL::setMaxTextureUnitsLimit(0);
    EXPECT_EQ(all, engine->maxTextureUnits());
}

TEST_F(EngineGLTest, KnowsVersionAndExtensions) {
    EXPECT_TRUE(engine->isVersion(1, 3));
    EXPECT_TRUE(engine->isVersion(1, 9));
    EXPECT_FALSE(engine->isVersion(99, 0));
    EXPECT_TRUE(engine->hasExtension("GL_EXT_framebuffer_object"));
    EXPECT_FALSE(engine->hasExtension("GL_EXT_framebuffer"));
    EXPECT_FALSE(engine->hasExtension(""));
}

TEST_F(EngineGLTest, HasOneDisplayListForEachObject) {
    const SO<Box> a(new Box), b(new Box);
    EXPECT_EQ(0U, engine->getDisplayList(a.get()));
    const unsigned list = engine->newDisplayList(a.get());
    ASSERT_NE(0U, list);
    compile(list);
    EXPECT_EQ(list, engine->getDisplayList(a.get()));
    EXPECT_EQ(0U, engine->getDisplayList(b.get()));
    EXPECT_EQ(1U, engine->displayListCount());
}

TEST_F(EngineGLTest, ForgetsTheDisplayListOfAChangedObject) {
    const Names before = countNames();
    const SO<Box> box(new Box);
    compile(engine->newDisplayList(box.get()));
    box->modified();
    EXPECT_EQ(0U, engine->displayListCount());
    EXPECT_EQ(0U, engine->getDisplayList(box.get()));
    EXPECT_EQ(before, countNames());
    compile(engine->newDisplayList(box.get()));
    box->modified();
    canvas->redisplay();
    EXPECT_EQ(before, countNames()) << "freed by the next picture";
}

TEST_F(EngineGLTest, DropsDisplayListsForWhichThereIsNoRoom) {
    auto * memory = GraphicsMemoryManager::instance();
    memory->setBudget(1000);
    const Names before = countNames();
    const SO<Box> a(new Box), b(new Box), c(new Box);
    compile(engine->newDisplayList(a.get(), 400));
    compile(engine->newDisplayList(b.get(), 400));
    EXPECT_NE(0U, engine->getDisplayList(a.get())) << "b was used the longest time ago";
    compile(engine->newDisplayList(c.get(), 400));
    EXPECT_EQ(0U, engine->getDisplayList(b.get()));
    EXPECT_NE(0U, engine->getDisplayList(a.get()));
    EXPECT_EQ(before.lists + 2, countNames().lists);
    const unsigned large = engine->newDisplayList(b.get(), 2000);
    compile(large);
    EXPECT_EQ(large, engine->getDisplayList(b.get())) << "the last one stays, whatever its size";
    EXPECT_EQ(before.lists + 1, countNames().lists);
    memory->setBudget(GraphicsMemoryManager::defaultBudget);
}

TEST_F(EngineGLTest, ReplacesADisplayList) {
    const Names before = countNames();
    const SO<Box> box(new Box);
    compile(engine->newDisplayList(box.get()));
    compile(engine->newDisplayList(box.get()));
    EXPECT_EQ(before.lists + 1, countNames().lists);
}

TEST_F(EngineGLTest, FreesTheDisplayListsOfDeadObjects) {
    const Names before = countNames();
    for (int i = 0; i < 100; ++i) {
        const SO<Box> box(new Box);
        EXPECT_EQ(0U, engine->getDisplayList(box.get())) << "a new object at an old address";
        compile(engine->newDisplayList(box.get()));
    }
    EXPECT_EQ(0U, engine->displayListCount());
    canvas->redisplay();
    EXPECT_EQ(before, countNames());
}

TEST_F(EngineGLTest, FreesTheDisplayListsWithItsContext) {
    const Names before = countNames();
    const SO<Box> box(new Box);
    SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(4, 4));
    ASSERT_TRUE(other->makeContextCurrent());
    compile(other->engine()->newDisplayList(box.get()));
    other->releaseContext();
    other = nullptr;
    ASSERT_TRUE(canvas->makeContextCurrent());
    canvas->releaseContext();
    EXPECT_EQ(before, countNames());
}

TEST_F(EngineGLTest, ReportsADisplayListOfNothing) {
    EXPECT_EQ(0U, engine->newDisplayList(nullptr));
    EXPECT_EQ(0U, engine->getDisplayList(nullptr));
    EXPECT_EQ(1U, reports.count(0, L"object", L"no object"));
    reports.clear();
}

std::vector<int> cleanedUp;
EngineGL * cleanedUpEngine = nullptr;
ContextGL * contextOfCleanUp = nullptr;
template <int number> void noteCleanUp(SO<EngineGL> engine) {
    cleanedUp.push_back(number);
    cleanedUpEngine = engine.get();
    contextOfCleanUp = ContextGL::current();
}
template <int number> SO<Callback1<SO<EngineGL>>> newCleanUp() {
    return SO<Callback1<SO<EngineGL>>>(new FunctionCallback1<SO<EngineGL>>(&noteCleanUp<number>));
}

TEST_F(EngineGLTest, CallsTheCleanUpCallbacksOnceWhileTheContextIsCurrent) {
    cleanedUp.clear();
    const SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(4, 4));
    const SO<EngineGL> otherEngine = other->engine();
    otherEngine->registerCleanUpCallback(newCleanUp<1>());
    otherEngine->registerCleanUpCallback(newCleanUp<2>());
    EXPECT_TRUE(cleanedUp.empty());
    other->destroy();
    EXPECT_EQ((std::vector<int>{2, 1}), cleanedUp) << "latest first";
    EXPECT_EQ(otherEngine.get(), cleanedUpEngine);
    EXPECT_NE(nullptr, contextOfCleanUp);
    EXPECT_EQ(nullptr, otherEngine->glCanvas());
    EXPECT_EQ(nullptr, otherEngine->getCanvas());
    other->destroy();
    EXPECT_EQ(2U, cleanedUp.size());
    EXPECT_TRUE(canvas->isContextCurrent()) << "the context from before is current again";
}

TEST_F(EngineGLTest, CallsTheCleanUpCallbacksWhenTheCanvasDies) {
    cleanedUp.clear();
    SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(4, 4));
    other->engine()->registerCleanUpCallback(newCleanUp<1>());
    other = nullptr;
    EXPECT_EQ(1U, cleanedUp.size());
}

TEST_F(EngineGLTest, ReportsAMissingCleanUpCallback) {
    engine->registerCleanUpCallback(nullptr);
    EXPECT_EQ(1U, reports.count(0, L"callback", L"no callback"));
    reports.clear();
}

TEST_F(EngineGLTest, LoadsTheMatricesInDoublePrecision) {
    const auto view = Matrix4x4Base<double>::translation({1.0, 2.0, 3.0});
    const auto projection = Matrix4x4Base<double>::scaling({0.5, 0.25, 0.125});
    const auto model = Matrix4x4Base<double>::rotation({0.0, 1.0, 0.0}, 0.5);
    engine->pushCamera(view, projection);
    engine->pushModelMatrix(model);
    double loaded[16];
    glGetDoublev(GL_MODELVIEW_MATRIX, loaded);
    const auto expected = (view * model).columns();
    for (int i = 0; i < 16; ++i)
        EXPECT_NEAR(expected[i], loaded[i], 1e-6) << i;
    glGetDoublev(GL_PROJECTION_MATRIX, loaded);
    for (int i = 0; i < 16; ++i)
        EXPECT_NEAR(projection.columns()[i], loaded[i], 1e-6) << i;
    engine->popModelMatrix();
    engine->popCamera();
    glGetDoublev(GL_MODELVIEW_MATRIX, loaded);
    EXPECT_NEAR(0.0, loaded[12], 1e-12);
}

TEST_F(EngineGLTest, LeavesTheMatricesOfOtherContextsAlone) {
    const SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(4, 4));
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    other->engine()->pushModelMatrix(Matrix4x4Base<double>::translation({1.0, 2.0, 3.0}));
    double loaded[16];
    glGetDoublev(GL_MODELVIEW_MATRIX, loaded);
    EXPECT_EQ(0.0, loaded[12]);
    other->engine()->popModelMatrix();
}

/// A shape that only OpenGL knows.
class Probe : public Shape {
    NBX_CLASS(Probe, Shape)
public:
    Probe() : Shape(true) {}
};
NBX_CLASS_IMPL(Probe, Shape)

int probesPainted = 0;
class ProbePainter : public ShapePainter {
public:
    ID target() const override { return Probe::ClassNameNBX(); }
    bool render(Engine *, const Shape *) override { return ++probesPainted > 0; }
};

TEST_F(EngineGLTest, ItsHandlersAreSeenByItselfAlone) {
    static const bool registered = (EngineGL::registerHandler(new ProbePainter), true);
    EXPECT_TRUE(registered);
    const SO<Probe> probe(new Probe);
    probesPainted = 0;
    const SO<Engine> plain(new Engine);
    plain->paint(probe.get());
    EXPECT_EQ(0, probesPainted);
    engine->paint(probe.get());
    EXPECT_EQ(1, probesPainted);
}

} // namespace
