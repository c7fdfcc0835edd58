#include "core/terrain/texture/dynamic/renderrastertexturegl.h"

#include <array>
#include <tuple>

#include <zmt/core/terrain/texture/simpleterraintexture.h>

#include "../faketerraintexture.h"
#include "core/terrain/texture/dynamic/trapezoidfit.h"
#include "core/terrain/texture/dynamic/trapezoidprogramsgl.h"
#include "dynamictexturetest.h"

using NBX::SO;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::RenderRasterTexture;
using ZMT::CORE::TerrainPainterGLSettings;
using ZMT::CORE::TrapezoidFit;
using ZMT::CORE::TrapezoidPass;

namespace {

using Point = NBX::Vector3Base<double>;
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
    /// Width and height of the view, the error, whether it moves and may come later.
    mutable std::tuple<unsigned, unsigned, double, bool, bool> how;

protected:
    SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                   const NBX::ViewInfo * viewInfo, unsigned w, unsigned h, double priority,
                                   const Point & eye, double error, bool inMotion, bool asynchronous,
                                   bool & incomplete) const override {
        asked.emplace_back(patch);
        how = {w, h, error, inMotion, asynchronous};
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

TEST_F(RenderRasterTextureTest, AVectorTextureIsDrawnBelowVectors) {
    const SO<NBX::SceneThing> west(new NBX::SceneThing);
    west->append(new NBX::ColorAttribute(NBX::Color(1.0, 0.0, 0.0)));
    west->append(area(Bounds(Point(0.0, 0.0, 0.0), Point(500.0, 0.0, 1024.0))).get());
    const SO<VectorTexture> below(
        new RecordingVectorTexture(west.get(), square, false, false, true, false, 10, 0));
    DynamicVectorTexture::setRasterTexture(below.get());
    lay({512, 900, 512}, {512, 0, 512}, {0, 0, 1});
    const SO<NBX::Image> picture = draw();
    EXPECT_TRUE(isRed(pixel(picture, 30, 64)));
    EXPECT_TRUE(isWhite(pixel(picture, 98, 64)));
}

/// The fourth coordinate divides the others for each pixel, not for each corner.
TEST_F(RenderRasterTextureTest, AMatrixOfATextureMayBeProjective) {
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(2, 1, NBX::LS_RGBA));
    image->setColor(0, 0, NBX::Color(1.0, 0.0, 0.0));
    image->setColor(1, 0, NBX::Color(0.0, 0.0, 1.0));
    splitting->width = 2000.0;
    // From x of 0 to 1024 to 3 x / (x + 2048): one half at 409.6.
    const SO<NBX::TextureGL> made(
        new NBX::ImageTexture2DGL(image, NBX::TextureGL::WM_ClampToEdge, NBX::TextureGL::WM_ClampToEdge,
                                  NBX::TextureGL::FM_Nearest, NBX::TextureGL::FM_Nearest));
    made->setMatrix(Matrix({3, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 0, 2048}));
    splitting->answer = SO<NBX::ImageTexture2DGL>(static_cast<NBX::ImageTexture2DGL *>(made.get()));
    for (const bool isInPass : {true, false}) {
        root->clear();
        look({512, 1098.1, 512}, {512, 0, 512}, {0, 0, 1});
        root->append(new LookingNode([&](NBX::Engine & e) {
            if (!isInPass) {
                e.paint(raster.get());
                return;
            }
            TrapezoidPass pass;
            set(pass, {512, 3000, 512}, {512, 0, 512}, {0, 0, 1});
            pass.trapMat = TrapezoidFit::squareToClip() * Matrix::scaling({1 / 1024.0, 1 / 1024.0, 1.0});
            raster->draw(engine.get());
        }));
        const SO<NBX::Image> picture = draw();
        for (int x = 1; x < 127; ++x)
            if (x != 51) {
                EXPECT_EQ(isRed(pixel(picture, x, 64)), x < 51) << x << " in a pass: " << isInPass;
            }
    }
}

/// 16 pixels are a unit; the picture begins at 5200000.2, where single precision has steps of half a unit.
class RenderRasterTextureFarOffTest : public RenderRasterTextureTest {
protected:
    /// Red below, blue above.
    SO<NBX::Image> drawHalves(const Bounds & box) {
        const SO<NBX::MemoryImage> image(new NBX::MemoryImage(1, 2, NBX::LS_RGBA));
        image->setColor(0, 0, NBX::Color(1.0, 0.0, 0.0));
        image->setColor(0, 1, NBX::Color(0.0, 0.0, 1.0));
        const SO<ZMT::CORE::TerrainTexture> halves(new ZMT::CORE::SimpleTerrainTexture(
            new NBX::ImageTexture2DGL(image, NBX::TextureGL::WM_ClampToEdge, NBX::TextureGL::WM_ClampToEdge,
                                      NBX::TextureGL::FM_Nearest, NBX::TextureGL::FM_Nearest),
            box, Matrix()));
        const SO<RenderRasterTexture> shape(new RenderRasterTexture(halves));
        root->clear();
        root->append(new LookingNode([&](NBX::Engine &) {
            TrapezoidPass pass;
            set(pass, {500002.3, 20, 5200004}, {500002.3, 0, 5200004}, {0, 0, 1});
            pass.terrain = box;
            pass.trapMat =
                Matrix::scaling({0.25, 0.25, 1.0}) * Matrix::translation({-500002.3, -5200004.2, 0.0});
            shape->draw(engine.get());
        }));
        return draw();
    }
};

TEST_F(RenderRasterTextureFarOffTest, ItsTexelsLieWhereTheyStand) {
    const SO<NBX::Image> picture = drawHalves({Point(-3.0e6, 0.0, 5200000.3), Point(3.0e6, 0.0, 5200008.1)});
    EXPECT_EQ(pixel(picture, 64, 0)[3], 0) << "before the border";
    for (int y = 3; y < 126; ++y)
        EXPECT_EQ(isRed(pixel(picture, 64, y)), y < 64) << y;
}

TEST_F(RenderRasterTextureFarOffTest, ABoxThatReachesFarOutOfViewEndsWhereItStands) {
    const SO<NBX::Image> picture =
        drawHalves({Point(-3.0e6, 0.0, -800000.0), Point(500003.1, 0.0, 5200005.0)});
    for (int i = 0; i < 128; ++i) {
        EXPECT_EQ(pixel(picture, 5, i)[3] > 0, i < 77) << i;
        EXPECT_EQ(pixel(picture, i, 5)[3] > 0, i < 77) << i;
    }
}

TEST_F(RenderRasterTextureTest, InASceneItHidesAndIsHidden) {
    const auto plate = [&](double height, double low, double high) {
        const SO<NBX::SceneThing> thing(new NBX::SceneThing(root.get()));
        thing->append(new NBX::ColorAttribute(NBX::Color(1.0, 0.0, 0.0)));
        thing->append(area(Bounds(Point(low, 0.0, 0.0), Point(high, 0.0, 1024.0)), height).get());
    };
    const SO<NBX::MemoryImage> white(new NBX::MemoryImage(1, 1, NBX::LS_RGBA));
    white->setColor(0, 0, NBX::Color::white);
    splitting->answer = new NBX::ImageTexture2DGL(white);
    root->clear();
    look({512, 900, 512}, {512, 0, 512}, {0, 0, 1});
    plate(100.0, 0.0, 500.0);
    root->append(raster.get());
    plate(-100.0, 500.0, 1024.0);
    const SO<NBX::Image> picture = draw();
    EXPECT_TRUE(isRed(pixel(picture, 30, 64))) << "what stands above it";
    EXPECT_TRUE(isWhite(pixel(picture, 98, 64))) << "over what lies below it";
}

/// A texture whose own drawing is a pass as well.
TEST_F(RenderRasterTextureTest, AfterAPassWithinItTheOuterOneGoesOn) {
    using Programs = ZMT::CORE::TrapezoidProgramsGL;
    const auto inUse = [] {
        std::array<float, 16> columns{};
        const GLhandleARB program = glGetHandleARB(GL_PROGRAM_OBJECT_ARB);
        glGetUniformfvARB(program, glGetUniformLocationARB(program, "trapMat"), columns.data());
        return columns;
    };
    {
        const Programs::TrapMatScope outer(Matrix::scaling({2.0, 3.0, 1.0}));
        ASSERT_TRUE(Programs::vectors().use());
        const auto before = inUse();
        EXPECT_EQ(before[0], 2.0F);
        {
            const Programs::TrapMatScope inner(Matrix::scaling({5.0, 5.0, 1.0}));
            ASSERT_TRUE(Programs::vectors().use());
            EXPECT_EQ(inUse()[0], 5.0F);
        }
        EXPECT_EQ(inUse(), before);
    }
    NBX::GL2::ProgramObject::useNone();
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

TEST_F(RenderRasterTextureTest, BelowVectorsItIsAskedAsTheseAre) {
    DynamicVectorTexture::setRasterTexture(splitting.get());
    for (const bool moves : {true, false}) {
        bool isIncomplete = false;
        DynamicVectorTexture::beginFrame({engine.get(), moves});
        dynamic->request(tree.get(), engine.get(), view.get(), 640, 480, 1.0, eye, 2.5, moves, !moves,
                         isIncomplete);
        EXPECT_EQ(splitting->how, std::tuple(640U, 480U, 2.5, moves, !moves)) << moves;
    }
}

TEST_F(RenderRasterTextureTest, ByItselfItIsAskedAsTerrainsAre) {
    const double before = TerrainPainterGLSettings::getTextureError();
    TerrainPainterGLSettings::setTextureError(3.5);
    look({500, 900, 480}, {500, 0, 480}, {0, 0, 1});
    const unsigned nodes = canvas->rootNodes();
    DynamicVectorTexture::renderTerrainTexture(engine, SO<ZMT::CORE::TerrainTexture>(splitting.get()));
    draw();
    canvas->remove(canvas->rootNode(nodes));
    TerrainPainterGLSettings::setTextureError(before);
    EXPECT_EQ(splitting->how, std::tuple(unsigned(s_pixels), unsigned(s_pixels), 3.5, false, false));
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
