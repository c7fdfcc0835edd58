#include "core/terrain/texture/dynamic/renderrastertexturegl.h"

#include <set>

#include <zmt/core/terrain/texture/simpleterraintexture.h>

#include "../faketerraintexture.h"
#include "core/terrain/texture/dynamic/trapezoidfit.h"
#include "dynamictexturetest.h"

using NBX::SO;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::RenderRasterTexture;
using ZMT::CORE::TrapezoidPass;
using Patch = ZMT::CORE::RenderRasterTexture_GeometryPatch;

namespace {

using Point = NBX::Vector3Base<double>;
const NBX::Bounds s_box(Point(0, -5, 100), Point(80, 15, 200));

TEST(RenderRasterTextureGeometryPatch, ItsChildrenPartItsBoxInPlan) {
    const SO<Patch> top(new Patch(s_box));
    ASSERT_EQ(top->children(), 4U);
    NBX::Bounds whole;
    double area = 0.0;
    for (unsigned i = 0; i < 4; ++i) {
        const NBX::Bounds box = top->child(i)->boundingBox();
        whole += box;
        area += box.diagonal().x * box.diagonal().z;
        EXPECT_EQ(box.getLLF().y, -5.0);
        EXPECT_EQ(box.getURB().y, 15.0);
        EXPECT_EQ(top->child(i)->parent().get(), top.get());
    }
    EXPECT_EQ(whole, s_box);
    EXPECT_EQ(area, 80.0 * 100.0);
    EXPECT_FALSE(top->data());
    EXPECT_FALSE(top->parent());
}

TEST(RenderRasterTextureGeometryPatch, ItsChildrenStayTheSame) {
    const SO<Patch> top(new Patch(s_box));
    const SO<GeometryPatch> child = top->child(2);
    EXPECT_EQ(top->child(2), child);
    EXPECT_NE(top->child(1), child);
}

TEST(RenderRasterTextureGeometryPatch, TheTreeEnds) {
    EXPECT_EQ(SO<Patch>(new Patch(s_box, Patch::maxDepth))->children(), 0U);
    EXPECT_EQ(SO<Patch>(new Patch(s_box, Patch::maxDepth - 1))->children(), 4U);
    const RecordedReports reports;
    EXPECT_FALSE(SO<Patch>(new Patch(s_box))->child(4));
    EXPECT_EQ(reports.count(L"range error: [0, 4), 4"), 1U);
}

/// Wants patches wider than a width to be split, and notes what it is asked for.
class SplittingTexture : public FakeTerrainTexture {
    NBX_TEMPLATE_CLASS(SplittingTexture, FakeTerrainTexture)
public:
    bool refine(const GeometryPatch * patch, const NBX::ViewInfo *, unsigned, unsigned, const Point &, double,
                bool) const override {
        return patch->boundingBox().diagonal().x > width;
    }
    double width = 300.0;
    mutable std::vector<SO<const GeometryPatch>> asked;

protected:
    SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                   const NBX::ViewInfo * viewInfo, unsigned w, unsigned h, double priority,
                                   const Point & eye, double error, bool inMotion, bool asynchronous,
                                   bool & incomplete) const override {
        asked.emplace_back(patch);
        return FakeTerrainTexture::requestImpl(patch, engine, viewInfo, w, h, priority, eye, error, inMotion,
                                               asynchronous, incomplete);
    }
};

class RenderRasterTextureTest : public DynamicTextureFixture {
protected:
    void SetUp() override {
        DynamicTextureFixture::SetUp();
        splitting->box = square;
        raster = new RenderRasterTexture(SO<ZMT::CORE::TerrainTexture>(splitting.get()));
    }
    void set(TrapezoidPass & pass, const Point & from, const Point & to, const Point & up = {0, 1, 0}) {
        const SO<NBX::LookAt> looking(new NBX::LookAt(from, to, up));
        const SO<NBX::Projection> lens(new NBX::Perspective(50.0, 1.0, 5000.0));
        pass.view = new NBX::ViewInfo(looking->matrix(), lens->matrix(1.0), NBX::Area(0, 0, 128, 128));
        pass.engine = engine.get();
        pass.terrain = square;
    }
    const SO<SplittingTexture> splitting{new SplittingTexture};
    SO<RenderRasterTexture> raster;
};

TEST_F(RenderRasterTextureTest, PatchesAreSplitAsTheTextureWants) {
    TrapezoidPass pass;
    set(pass, {512, 3000, 512}, {512, 0, 512}, {0, 0, 1});
    raster->draw(engine.get());
    EXPECT_EQ(splitting->asked.size(), 16U);
    for (const auto & patch : splitting->asked)
        EXPECT_EQ(patch->boundingBox().diagonal().x, 256.0);
}

TEST_F(RenderRasterTextureTest, WhatIsNotSeenIsNotAskedFor) {
    TrapezoidPass pass;
    set(pass, {100, 200, 100}, {100, 0, 100}, {0, 0, 1});
    raster->draw(engine.get());
    EXPECT_EQ(splitting->asked.size(), 1U);
}

TEST_F(RenderRasterTextureTest, ThePatchesAreTheSameInEveryPicture) {
    TrapezoidPass pass;
    set(pass, {512, 3000, 512}, {512, 0, 512}, {0, 0, 1});
    raster->draw(engine.get());
    const auto first = splitting->asked;
    splitting->asked.clear();
    raster->draw(engine.get());
    EXPECT_EQ(splitting->asked, first);
}

TEST_F(RenderRasterTextureTest, ATextureWithoutABoxLiesOnTheTerrain) {
    splitting->box = Bounds();
    EXPECT_FALSE(raster->boundingBox().isDefined());
    TrapezoidPass pass;
    set(pass, {512, 3000, 512}, {512, 0, 512}, {0, 0, 1});
    pass.terrain = Bounds(Point(500, 0, 500), Point(600, 10, 600));
    raster->draw(engine.get());
    ASSERT_EQ(splitting->asked.size(), 1U);
    EXPECT_EQ(splitting->asked[0]->boundingBox(), pass.terrain);
}

TEST_F(RenderRasterTextureTest, WhatIsIncompleteIsTold) {
    splitting->isIncomplete = true;
    TrapezoidPass pass;
    set(pass, {512, 3000, 512}, {512, 0, 512}, {0, 0, 1});
    raster->draw(engine.get());
    EXPECT_TRUE(pass.isIncomplete);
}

TEST_F(RenderRasterTextureTest, WhatIsIncompleteBelowVectorsAsksForAnotherPicture) {
    splitting->isIncomplete = true;
    DynamicVectorTexture::setRasterTexture(splitting.get());
    canvas->setRenderingMode(1);
    lay({512, 2000, 512}, {512, 0, 512}, {0, 0, 1});
    draw();
    EXPECT_TRUE(canvas->redisplayPending());
    splitting->isIncomplete = false;
    draw();
    EXPECT_FALSE(canvas->redisplayPending());
}

TEST_F(RenderRasterTextureTest, PassesLieWithinEachOther) {
    EXPECT_FALSE(TrapezoidPass::current());
    {
        TrapezoidPass outer;
        EXPECT_EQ(TrapezoidPass::current(), &outer);
        {
            TrapezoidPass inner;
            EXPECT_EQ(TrapezoidPass::current(), &inner);
        }
        EXPECT_EQ(TrapezoidPass::current(), &outer);
    }
    EXPECT_FALSE(TrapezoidPass::current());
}

TEST_F(RenderRasterTextureTest, WithoutATextureThatIsToldAndNothingDrawn) {
    const SO<RenderRasterTexture> none(new RenderRasterTexture(nullptr));
    EXPECT_EQ(reports.count(L"no texture"), 1U);
    reports.clear();
    none->draw(engine.get());
    EXPECT_FALSE(none->boundingBox().isDefined());
}

} // namespace
