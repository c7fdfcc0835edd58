#include <nbx/gl/state/occlusionquerygl.h>

#include <nbx/scene/shape/box.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class OcclusionQueryGLTest : public GLFixture {
protected:
    /// Covers half of the picture, 64 * 32 pixels.
    const SO<Box> half{new Box({-1.0, -1.0, 0.0}, {1.0, 0.0, 0.0})};

    void SetUp() override {
        GLFixture::SetUp();
        canvas->redisplay();
    }
};

TEST_F(OcclusionQueryGLTest, CountsTheFragments) {
    const SO<OcclusionQueryGL> query(new OcclusionQueryGL(1));
    EXPECT_EQ(OcclusionQueryGL::QM_CountFragments, query->queryMode());
    EXPECT_FALSE(query->isAvailable());
    EXPECT_EQ(0U, query->fragmentCount());
    glDepthFunc(GL_LESS);
    engine->push(query.get());
    engine->paint(half.get());
    engine->pop(query.get());
    EXPECT_EQ(64U * 32U, query->fragmentCount()) << "front and back side lie at one depth";
    EXPECT_TRUE(query->isAvailable());
    engine->push(query.get());
    engine->pop(query.get());
    EXPECT_EQ(0U, query->fragmentCount()) << "used again";
}

TEST_F(OcclusionQueryGLTest, TellsWhetherThereAreFragments) {
    const SO<OcclusionQueryGL> query(new OcclusionQueryGL(OcclusionQueryGL::QM_AnyFragments));
    query->begin();
    engine->paint(half.get());
    query->end();
    EXPECT_EQ(1U, query->fragmentCount());
}

TEST_F(OcclusionQueryGLTest, OneCountsAtATime) {
    const SO<OcclusionQueryGL> outer(new OcclusionQueryGL), inner(new OcclusionQueryGL);
    engine->push(outer.get());
    engine->push(inner.get());
    engine->paint(half.get());
    engine->pop(inner.get());
    engine->pop(outer.get());
    EXPECT_EQ(64U * 32U, inner->fragmentCount());
    EXPECT_EQ(0U, outer->fragmentCount());
}

TEST_F(OcclusionQueryGLTest, MayBeUsedInAnotherContext) {
    const SO<OcclusionQueryGL> query(new OcclusionQueryGL);
    query->begin();
    query->end();
    const SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(8, 8));
    ASSERT_TRUE(other->makeContextCurrent());
    EXPECT_FALSE(query->isAvailable());
    query->begin();
    query->end();
    EXPECT_EQ(0U, query->fragmentCount());
    other->releaseContext();
    EXPECT_FALSE(query->isAvailable());
}

TEST_F(OcclusionQueryGLTest, ReportsUnknownModes) {
    const SO<OcclusionQueryGL> query(new OcclusionQueryGL(7));
    EXPECT_EQ(OcclusionQueryGL::QM_CountFragments, query->queryMode());
    EXPECT_EQ(1U, reports.count(L"range error: [0, 2), 7"));
    reports.clear();
}

} // namespace
