#include <zmt/core/terrain/geometry/base/geometrypatchpaintergl.h>

#include <nbx/scene/attribute/contextdata.h>
#include <zmt/core/misc/usedisplaylistgl.h>

#include "support/testpatches.h"

using ZMT::CORE::GeometryPatch;
using ZMT::CORE::GeometryPatchPainterGL;
using ZMT::CORE::UseDisplayListGL;

namespace {

class CountingPainter : public GeometryPatchPainterGL {
    NBX_TEMPLATE_CLASS(CountingPainter, GeometryPatchPainterGL)
public:
    NBX::ID target() const override { return GeometryPatch::ClassNameNBX(); }
    void renderPatch(NBX::EngineGL *, const GeometryPatch *) override {
        ++patches_;
        glGetIntegerv(GL_LIST_INDEX, &list_);
        glBegin(GL_TRIANGLES);
        for (const auto & p : {Point(0, 0, 0), Point(0, 0, 1), Point(1, 0, 0)})
            glVertex3dv(&p.x);
        glEnd();
    }
    void renderOuterWall(NBX::EngineGL *, const GeometryPatch *) override { ++walls_; }

    using Point = NBX::Vector3Base<double>;
    unsigned patches_ = 0, walls_ = 0;
    GLint list_ = 0; ///< that was being recorded
};

class PainterWithoutLists : public CountingPainter {
    NBX_TEMPLATE_CLASS(PainterWithoutLists, CountingPainter)
public:
    bool shouldUseDisplayLists() const override { return false; }
};

class GeometryPatchPainterGLTest : public PatchPainterFixture {
protected:
    /// Paints twice under an attribute, which may be null, and tells whether a display list was used.
    bool usesList(CountingPainter & painter, NBX::Attribute * attribute) {
        const auto patch = TestPatches::gridPatch(TestPatches::smallGrid(), NBX::Area(0, 0, 1, 1));
        painter.patches_ = 0;
        const NBX::AttributeScope scope(engine.get(), attribute);
        for (unsigned i = 0; i < 2; ++i)
            EXPECT_EQ(feedback([&] { EXPECT_TRUE(painter.render(engine.get(), patch.get())); }).size(), 1U);
        EXPECT_EQ(painter.walls_, 0U);
        const bool uses = engine->getDisplayList(patch.get()) != 0;
        EXPECT_EQ(painter.patches_, uses ? 1U : 2U);
        EXPECT_EQ(painter.list_ != 0, uses);
        return uses;
    }

    NBX::SO<CountingPainter> painter{new CountingPainter};
};

TEST_F(GeometryPatchPainterGLTest, UsesDisplayListsWhereNothingSpeaksAgainstIt) {
    const NBX::ID canvasName = NBX::Canvas::ClassNameNBX();
    const NBX::SO<UseDisplayListGL> on(new UseDisplayListGL(true)), off(new UseDisplayListGL(false));
    const NBX::SO<NBX::ContextData<NBX::Canvas *>> onCanvas(
        new NBX::ContextData<NBX::Canvas *>(canvasName, canvas.get())),
        onNone(new NBX::ContextData<NBX::Canvas *>(canvasName, nullptr));
    const NBX::SO<NBX::ContextData<int>> noCanvas(new NBX::ContextData<int>(canvasName, 1));

    EXPECT_TRUE(usesList(*painter, nullptr));
    EXPECT_TRUE(usesList(*painter, on.get()));
    EXPECT_FALSE(usesList(*painter, off.get()));
    EXPECT_FALSE(usesList(*painter, onCanvas.get()));
    EXPECT_FALSE(usesList(*painter, onNone.get()));
    EXPECT_TRUE(usesList(*painter, noCanvas.get()));
    {
        const NBX::AttributeScope scope(engine.get(), on.get());
        EXPECT_FALSE(usesList(*painter, onCanvas.get()));
    }
    EXPECT_FALSE(usesList(*NBX::SO<PainterWithoutLists>(new PainterWithoutLists), nullptr));
}

TEST_F(GeometryPatchPainterGLTest, RecordsAChangedPatchAgain) {
    const auto patch = TestPatches::gridPatch(TestPatches::smallGrid(), NBX::Area(0, 0, 1, 1));
    painter->render(engine.get(), patch.get());
    patch->modified();
    painter->render(engine.get(), patch.get());
    EXPECT_EQ(painter->patches_, 2U);
}

TEST_F(GeometryPatchPainterGLTest, DrawsTheWallUnderItsFlag) {
    const auto patch = TestPatches::gridPatch(TestPatches::smallGrid(), NBX::Area(0, 0, 1, 1));
    const NBX::SO<NBX::ContextData<bool>> flag(new NBX::ContextData<bool>("RenderOuterWallFlag", true));
    const NBX::AttributeScope scope(engine.get(), flag.get());
    EXPECT_TRUE(painter->render(engine.get(), patch.get()));
    EXPECT_EQ(painter->walls_, 1U);
    EXPECT_EQ(painter->patches_, 0U);
    EXPECT_EQ(engine->displayListCount(), 0U);
}

TEST_F(GeometryPatchPainterGLTest, DeclinesOtherShapes) {
    EXPECT_FALSE(painter->render(engine.get(), nullptr));
    EXPECT_FALSE(painter->render(engine.get(), TestPatches::smallGrid().get()));
    EXPECT_EQ(painter->patches_ + painter->walls_, 0U);
}

} // namespace
