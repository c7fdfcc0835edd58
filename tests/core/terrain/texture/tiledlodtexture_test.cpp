#include <zmt/core/terrain/texture/tiledlodtexture.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include <support/firstframe.h>
#include <support/glfixture.h>
#include <support/readingstream.h>
#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <support/smallgeotiff.h>
#include <support/temporaryfolder.h>

#include "core/terrain/texture/emptytexture.h"
#include <nbx/gl/context/enginegl.h>
#include <nbx/object/nbxtime.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <zmt/core/misc/semaphore.h>
#include <zmt/core/misc/thread.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>

#include "fakepyramid.h"
#include "support/testterrain.h"

using NBX::Bounds;
using NBX::SO;
using NBX::TextureGL;
using ZMT::CORE::EmptyTexture;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::GeoTransformation;
using ZMT::CORE::Semaphore;
using ZMT::CORE::TerrainPainterFrameManager;
using ZMT::CORE::Thread;
using ZMT::CORE::TiledLODTexture;
using ZMT::RASTER::MemoryTiledGeoImagePyramid;
using Point = NBX::Vector3Base<double>;

namespace {

constexpr unsigned s_maxTextureMemory = 134217728;
constexpr unsigned s_mebibyte = 1048576;
/// Of the textures of the root and of its children in these tests.
constexpr unsigned s_rootSize = 256 * 128 * 4, s_childSize = 512 * 256 * 4;

void beginFrame() {
    TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false});
}
void endFrame() {
    TerrainPainterFrameManager::CallEndFrameCallbacks({nullptr, false});
}

/// Leaves the class behind as at the start of the process.
void forgetManager() {
    TiledLODTexture::killManager();
    TiledLODTexture::setMaxTextureMemory(s_maxTextureMemory);
}

/// For the tests of other classes, which expect no report.
void makeManagerQuietly() {
    forgetManager();
    haveFirstFrame();
}

/// The patch from (x, z), four times as wide as deep.
SO<FakePatch> patchAt(double x, double z, double width) {
    return FakePatch::oblong(x, z, width, width / 4.0, 0);
}

/// 1024 by 512 pixels over 1024 by 256 units, in levels down to one pixel, and a quadtree over the same box.
/// A texture takes a whole patch at the level at which its columns number at most 510.
class TiledLODTextureTest : public testing::Test {
protected:
    void SetUp() override { makeManagerQuietly(); }
    void TearDown() override {
        EXPECT_TRUE(reports.empty()) << reports;
        makeManagerQuietly();
    }

    SO<TextureGL> request(const TiledLODTexture & asked, const GeometryPatch & patch, double textureError) {
        incomplete = false;
        return asked.request(&patch, nullptr, view.get(), 1000, 1000, 1.0, eye, textureError, false,
                             asynchronous, incomplete);
    }
    SO<TextureGL> request(const GeometryPatch & patch, double textureError = 0.0) {
        return request(*texture, patch, textureError);
    }
    bool refine(const GeometryPatch & patch, double textureError) const {
        return texture->refine(&patch, view.get(), 1000, 1000, eye, textureError, false);
    }
    /// Frame by frame, until the patch has what it wants.
    SO<TextureGL> requestUntilComplete(const GeometryPatch & patch) {
        for (int frame = 0; frame < 5000; ++frame) {
            beginFrame();
            SO<TextureGL> result = request(patch);
            endFrame();
            if (!incomplete) return result;
            Thread::sleep(0.001);
        }
        ADD_FAILURE() << "the texture never came";
        return nullptr;
    }

    /// In the preparation of another texture, until `go` is increased.
    void holdWorker() {
        const SO<Semaphore> arrived(new Semaphore);
        const SO<FakePyramid> other(new FakePyramid(1024, 11));
        other->during = [arrived, go = go](double width) {
            if (width > 600.0) return;
            arrived->increase();
            go->decrease();
        };
        holding = new TiledLODTexture(other.get());
        request(*holding, *child, 0.0);
        endFrame();
        arrived->decrease();
    }

    RecordedReports reports;
    const SO<Semaphore> go{new Semaphore};
    SO<TiledLODTexture> holding; ///< what the worker is held in
    SO<FakePyramid> pyramid{new FakePyramid(1024, 11)};
    SO<TiledLODTexture> texture{new TiledLODTexture(pyramid.get())};
    const SO<FakePatch> root = FakePatch::oblong(0.0, 0.0, 1024.0, 256.0, 3);
    const SO<GeometryPatch> child = root->child(0), grandchild = child->child(0);
    SO<NBX::ViewInfo> view = viewFromAbove(1.0);
    const Point eye{10.0, 0.0, 10.0};
    bool asynchronous = true;
    bool incomplete = false;
};

TEST_F(TiledLODTextureTest, CoversThePyramidAtEveryHeightInSceneCoordinates) {
    EXPECT_EQ(texture->boundingBox(), Bounds(Point(0.0, -1e42, 0.0), Point(1024.0, 1e42, 256.0)));
    GeoTransformation::setNBXOrigin({1000.0, 50.0, 2000.0});
    EXPECT_EQ(texture->boundingBox(), Bounds(Point(-1000.0, -1e42, -2000.0), Point(24.0, 1e42, -1744.0)));
    GeoTransformation::setNBXOrigin({});
    EXPECT_FALSE(SO<TiledLODTexture>(new TiledLODTexture(nullptr))->boundingBox().isDefined());
}

TEST_F(TiledLODTextureTest, FiltersLinearly) {
    EXPECT_EQ(texture->minFilter(), TextureGL::FM_Linear);
    EXPECT_EQ(texture->magFilter(), TextureGL::FM_Linear);
    EXPECT_EQ(request(*root)->getMinFilter(), TextureGL::FM_Linear);
}

// Whether a patch is split.

TEST_F(TiledLODTextureTest, SplitsAPatchWhoseTexelsAreTooLarge) {
    // With a margin of two pixels the root's 1024 units take level 2, the child's 512 level 1.
    EXPECT_TRUE(refine(*root, 3.9));
    EXPECT_FALSE(refine(*root, 4.0)) << "exactly the allowed size";
    EXPECT_TRUE(refine(*child, 1.9));
    EXPECT_FALSE(refine(*child, 2.0));
    view = viewFromAbove(0.25);
    EXPECT_FALSE(refine(*root, 1.0)) << "the same texels from farther away";
}

TEST_F(TiledLODTextureTest, SplitsNothingAtTheFinestLevel) {
    EXPECT_FALSE(refine(*grandchild, 0.0));
    view = viewFromAbove(1e6);
    EXPECT_FALSE(refine(*grandchild, 0.0));
}

TEST_F(TiledLODTextureTest, SplitsNothingOutside) {
    for (const double x : {-2048.0, -1024.0, 1024.0, 5000.0})
        EXPECT_FALSE(refine(*patchAt(x, 0.0, 1024.0), 0.0)) << x;
    for (const double z : {-512.0, -256.0, 256.0, 5000.0})
        EXPECT_FALSE(refine(*patchAt(0.0, z, 1024.0), 0.0)) << z;
}

TEST_F(TiledLODTextureTest, OnlyThePartThatBothShareCounts) {
    // 24 units of the patch lie on the texture, but all its depth, of which level 1 takes 256 rows.
    EXPECT_TRUE(refine(*patchAt(1000.0, 0.0, 1024.0), 1.9));
    EXPECT_FALSE(refine(*patchAt(1000.0, 0.0, 1024.0), 2.0));
    EXPECT_FALSE(refine(*patchAt(1000.0, 250.0, 1024.0), 0.0));
}

TEST_F(TiledLODTextureTest, ANullPatchIsReported) {
    EXPECT_FALSE(texture->refine(nullptr, view.get(), 1000, 1000, eye, 1.0, false));
    EXPECT_EQ(
        texture->request(nullptr, nullptr, view.get(), 1000, 1000, 1.0, eye, 1.0, false, false, incomplete),
        EmptyTexture::texture());
    EXPECT_EQ(reports.count(0, L"patch", L"no geometry patch"), 2U) << reports;
    EXPECT_EQ(reports.size(), 2U) << reports;
    reports.clear();
}

// What a patch shows.

TEST_F(TiledLODTextureTest, OutsideItShowsTheEmptyTextureAndForgetsThePatch) {
    for (const auto & [x, z] : {std::pair(-2048.0, 0.0), std::pair(-1024.0, 0.0), std::pair(1024.0, 0.0),
                                std::pair(0.0, -256.0), std::pair(0.0, 256.0)}) {
        const SO<FakePatch> outside = patchAt(x, z, 1024.0);
        EXPECT_EQ(request(*outside), EmptyTexture::texture()) << x << " " << z;
        EXPECT_EQ(outside->references(), 1);
    }
    EXPECT_TRUE(pyramid->calls().empty());
    EXPECT_FALSE(incomplete);
}

TEST_F(TiledLODTextureTest, APyramidWithoutLevelsShowsTheEmptyTexture) {
    const SO<FakePyramid> empty(new FakePyramid(1024, 0));
    const SO<TiledLODTexture> blank(new TiledLODTexture(empty.get()));
    EXPECT_EQ(request(*blank, *root, 0.0), EmptyTexture::texture());
    EXPECT_FALSE(blank->refine(root.get(), view.get(), 1000, 1000, eye, 0.0, false));
    const SO<TiledLODTexture> none(new TiledLODTexture(nullptr));
    EXPECT_EQ(request(*none, *root, 0.0), EmptyTexture::texture());
    EXPECT_FALSE(none->refine(root.get(), view.get(), 1000, 1000, eye, 0.0, false));
}

TEST_F(TiledLODTextureTest, TheRootIsPreparedOnTheSameCallAndThread) {
    const SO<TextureGL> result = request(*root);
    ASSERT_TRUE(result);
    EXPECT_FALSE(incomplete);
    ASSERT_EQ(pyramid->calls().size(), 1U);
    const FakePyramid::Call call = pyramid->calls()[0];
    EXPECT_EQ(call.thread, std::this_thread::get_id());
    EXPECT_EQ(call.minX, 0.0);
    EXPECT_EQ(call.maxX, 1024.0);
    EXPECT_EQ(call.maxY, 256.0);
    EXPECT_EQ(call.width, 256U) << "what the level has";
    EXPECT_EQ(call.height, 128U);
    EXPECT_EQ(request(*root), result);
    EXPECT_EQ(pyramid->calls().size(), 1U);
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), s_rootSize);
}

TEST_F(TiledLODTextureTest, ATextureIsNoLargerThanItsLevel) {
    pyramid = new FakePyramid(100, 7);
    texture = new TiledLODTexture(pyramid.get());
    request(*patchAt(0.0, 0.0, 100.0));
    EXPECT_EQ(pyramid->calls()[0].width, 128U);
    EXPECT_EQ(pyramid->calls()[0].height, 64U);
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), 128U * 64U * 4U);
}

TEST_F(TiledLODTextureTest, SynchronouslyEverythingComesInTheFrame) {
    asynchronous = false;
    beginFrame();
    const SO<TextureGL> result = request(*grandchild);
    EXPECT_FALSE(incomplete);
    endFrame();
    EXPECT_EQ(pyramid->widths(), "256 ");
    EXPECT_EQ(pyramid->calls()[0].thread, std::this_thread::get_id());
    EXPECT_NE(result, EmptyTexture::texture());
}

TEST_F(TiledLODTextureTest, UntilItIsThereThePatchShowsItsNearestAncestor) {
    const SO<TextureGL> ofRoot = request(*root);
    EXPECT_EQ(request(*child), ofRoot);
    EXPECT_TRUE(incomplete);
    const SO<TextureGL> ofChild = requestUntilComplete(*child);
    EXPECT_NE(ofChild, ofRoot);
    EXPECT_EQ(request(*grandchild), ofChild);
    EXPECT_TRUE(incomplete);
    EXPECT_NE(requestUntilComplete(*grandchild), ofChild);
    EXPECT_EQ(pyramid->widths(), "1024 512 256 ");
    EXPECT_NE(pyramid->calls()[2].thread, std::this_thread::get_id());
}

TEST_F(TiledLODTextureTest, TheFinerIsWantedMoreWhereItWinsMore) {
    request(*root);
    holdWorker();

    // 1 * 1 for the grandchild, 0.5 * 2 for the child, and again for its sibling's sake.
    request(*grandchild);
    request(*child->child(1));
    go->increase();
    requestUntilComplete(*grandchild);
    EXPECT_EQ(pyramid->widths().substr(0, 13), "1024 512 256 ") << "the child counts for two";
}

TEST_F(TiledLODTextureTest, AParentThatIsGoodEnoughServes) {
    // The child's texels are two pixels wide: fine enough for 2.5, as are not those of the root.
    EXPECT_TRUE(request(*grandchild, 2.5));
    EXPECT_TRUE(incomplete);
    for (int frame = 0; incomplete && frame < 5000; ++frame) {
        beginFrame();
        request(*grandchild, 2.5);
        endFrame();
        Thread::sleep(0.001);
    }
    EXPECT_EQ(pyramid->widths(), "1024 512 ");
    EXPECT_TRUE(request(*grandchild, 4.0));
    EXPECT_FALSE(incomplete);
    EXPECT_EQ(pyramid->widths(), "1024 512 ");
}

TEST_F(TiledLODTextureTest, BelowTheFinestLevelPatchesShareTheTextureOfTheirParent) {
    asynchronous = false;
    const SO<TextureGL> shared = request(*grandchild);
    EXPECT_EQ(request(*grandchild->child(0)), shared);
    EXPECT_EQ(request(*grandchild->child(1)), shared);
    EXPECT_EQ(pyramid->widths(), "256 ");
}

TEST_F(TiledLODTextureTest, TwoChildrenOfAFinestPatchAreServedByOnePreparation) {
    asynchronous = false;
    const SO<TextureGL> shared = request(*grandchild->child(3));
    EXPECT_EQ(request(*grandchild->child(2)), shared);
    EXPECT_EQ(pyramid->widths(), "256 ");
}

TEST_F(TiledLODTextureTest, WhereThePyramidHasNothingThePatchShowsNothing) {
    pyramid->isBlank = [](double width) { return width < 300.0; };
    asynchronous = false;
    EXPECT_NE(request(*child), EmptyTexture::texture());
    EXPECT_EQ(request(*grandchild), EmptyTexture::texture());
    EXPECT_FALSE(incomplete) << "there is nothing to wait for";
    EXPECT_EQ(request(*grandchild), EmptyTexture::texture());
    EXPECT_EQ(pyramid->widths(), "512 256 ") << "it is not tried again in every frame";
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), s_childSize + s_mebibyte);
    pyramid->isBlank = [](double) { return true; };
    const SO<TiledLODTexture> blank(new TiledLODTexture(pyramid.get()));
    EXPECT_EQ(request(*blank, *root, 0.0), EmptyTexture::texture());
}

TEST_F(TiledLODTextureTest, AFileThatVanishesIsReportedOnceAndShowsWhatIsThere) {
    const SO<TextureGL> ofRoot = request(*root);
    pyramid->during = [](double) { throw std::runtime_error("the file has gone"); };
    EXPECT_EQ(requestUntilComplete(*child), ofRoot) << "on the worker";
    asynchronous = false;
    EXPECT_EQ(request(*root->child(1)), ofRoot) << "on this thread";
    EXPECT_EQ(reports.count(2, L"false", L"cannot read a part of the image: the file has gone"), 1U)
        << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;

    const SO<TiledLODTexture> fresh(new TiledLODTexture(pyramid.get()));
    EXPECT_EQ(request(*fresh, *root, 0.0), EmptyTexture::texture()) << "there is nothing coarser";
    reports.clear();
}

TEST_F(TiledLODTextureTest, WhatThePyramidGivesNothingForAsItCannotReadItShowsTheParent) {
    asynchronous = false;
    const SO<TextureGL> ofChild = request(*child);
    pyramid->isBlank = [](double width) { return width < 300.0; };
    static_cast<FakeLevel &>(*pyramid->overview(0)).hasFailed = true;
    EXPECT_EQ(request(*grandchild), ofChild);
    EXPECT_FALSE(incomplete) << "it may fail for ever";
    EXPECT_EQ(request(*grandchild), ofChild);
    EXPECT_EQ(pyramid->widths(), "512 256 ") << "it is not tried again in every frame";
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), s_childSize) << "of the child alone";
}

/// Two levels of a file, each in a part of its own.
class TwoPartFile {
public:
    TwoPartFile() {
        write("fine.tif", tiff(1024, 256, 200));
        write("coarse.tif", tiff(512, 128, 100));
        std::string bands;
        for (const char * band : {"1", "2", "3"})
            bands += std::string("<VRTRasterBand dataType='Byte' band='") + band +
                     "'><SimpleSource><SourceFilename relativeToVRT='1'>fine.tif</SourceFilename>"
                     "<SourceBand>" +
                     band +
                     "</SourceBand></SimpleSource>"
                     "<Overview><SourceFilename relativeToVRT='1'>coarse.tif</SourceFilename><SourceBand>" +
                     band + "</SourceBand></Overview></VRTRasterBand>";
        write("image.vrt", "<VRTDataset rasterXSize='1024' rasterYSize='256'>" + bands + "</VRTDataset>");
    }
    static std::string path(const char * name) { return std::filesystem::temp_directory_path() / name; }

private:
    static std::string tiff(unsigned width, unsigned height, std::uint8_t value) {
        SmallGeoTiff content{.width = width, .height = height, .pixels = SmallGeoTiff::Pixels::Colors};
        content.colors.assign(std::size_t(3) * width * height, value);
        content.isPlaced = false;
        return content.encode();
    }
    static void write(const char * name, const std::string & bytes) {
        std::ofstream(path(name), std::ios::binary) << bytes;
    }

    TemporaryFolder folder_;
};

TEST_F(TiledLODTextureTest, AnImageFileThatShrinksInUseShowsWhatIsThere) {
    const TwoPartFile file;
    const SO<ZMT::RASTER::ImageFilePyramid> image(
        new ZMT::RASTER::ImageFilePyramid(TwoPartFile::path("image.vrt")));
    ASSERT_EQ(image->overview(1)->pixelsX(), 512U);
    texture = new TiledLODTexture(image.get());
    const SO<TextureGL> ofRoot = request(*root);
    ASSERT_NE(ofRoot, EmptyTexture::texture());
    std::filesystem::resize_file(TwoPartFile::path("fine.tif"), 1000);

    const SO<TextureGL> ofChild = requestUntilComplete(*child);
    EXPECT_NE(ofChild, ofRoot) << "its pixels are in the other part";
    EXPECT_NE(ofChild, EmptyTexture::texture());
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_EQ(requestUntilComplete(*grandchild), ofChild);
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(reports.last().level, 2);
    EXPECT_EQ(requestUntilComplete(*child->child(1)), ofChild);
    EXPECT_EQ(request(*child), ofChild);
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
}

// The textures themselves.

TEST_F(TiledLODTextureTest, TheTextureIsMappedByTheEdgesOfItsPixels) {
    GeoTransformation::setNBXOrigin({-100.0, 7.0, -200.0});
    const SO<FakePatch> patch = patchAt(100.0, 200.0, 512.0);
    const SO<TextureGL> result = request(*patch);
    GeoTransformation::setNBXOrigin({});
    EXPECT_EQ(pyramid->calls()[0].minX, 0.0);
    EXPECT_EQ(pyramid->calls()[0].minY, 0.0);
    EXPECT_EQ(pyramid->calls()[0].maxX, 512.0);
    EXPECT_EQ(pyramid->calls()[0].maxY, 128.0);
    const auto & matrix = result->getMatrix();
    const Point low = matrix * Point(100.0, 200.0, 0.0), high = matrix * Point(612.0, 328.0, 0.0);
    EXPECT_NEAR(low.x, 0.0, 1e-12);
    EXPECT_NEAR(low.y, 0.0, 1e-12);
    EXPECT_NEAR(high.x, 1.0, 1e-12);
    EXPECT_NEAR(high.y, 1.0, 1e-12);
}

TEST_F(TiledLODTextureTest, BeyondTheTextureIsNothing) {
    const SO<NBX::ImageTexture2DGL> result = NBX::soCast<NBX::ImageTexture2DGL>(request(*root));
    ASSERT_TRUE(result);
    EXPECT_EQ(result->getWrapS(), TextureGL::WM_ClampToBorder);
    EXPECT_EQ(result->getWrapT(), TextureGL::WM_ClampToBorder);
    EXPECT_EQ(result->getBorderColor(), NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
    EXPECT_EQ(result->getAnisotropy(), 1.0);
    EXPECT_TRUE(result->unrefsImageAfterBinding());
    EXPECT_EQ(result->getInternalFormat(), 0U);
}

TEST_F(TiledLODTextureTest, FloatImagesKeepTheirPrecision) {
    pyramid->layers = NBX::LS_Luminance;
    for (const auto & [type, format] :
         {std::pair(NBX::Image::Half, 34846U), std::pair(NBX::Image::Float, 34840U),
          std::pair(NBX::Image::UInt16, 0U)}) {
        pyramid->dataType = type;
        texture = new TiledLODTexture(pyramid.get());
        EXPECT_EQ(NBX::soCast<NBX::ImageTexture2DGL>(request(*root))->getInternalFormat(), format);
    }
}

TEST_F(TiledLODTextureTest, ImagesWithoutAlphaGetOneForTheirBorderAndStayWhatTheyAre) {
    for (const auto & [layers, stored, channels] :
         {std::tuple(NBX::LS_RGB, NBX::LS_RGBA, TextureGL::C_RGB),
          std::tuple(NBX::LS_BGR, NBX::LS_BGRA, TextureGL::C_RGB),
          std::tuple(NBX::LS_RGBA, NBX::LS_RGBA, TextureGL::C_RGBA),
          std::tuple(NBX::LS_Luminance, NBX::LS_LuminanceAlpha, TextureGL::C_Luminance),
          std::tuple(NBX::LS_LuminanceAlpha, NBX::LS_LuminanceAlpha, TextureGL::C_LuminanceAlpha)}) {
        pyramid->layers = layers;
        texture = new TiledLODTexture(pyramid.get());
        const auto result = NBX::soCast<NBX::ImageTexture2DGL>(request(*root));
        EXPECT_EQ(result->getImage()->layerSequence(), stored) << layers;
        EXPECT_EQ(result->channels(), channels) << layers;
    }
}

// The manager.

TEST_F(TiledLODTextureTest, TheFirstFrameMakesTheManagerAndSaysSo) {
    forgetManager();
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), 0U);
    endFrame();
    EXPECT_TRUE(reports.empty()) << "the end of a frame makes none";
    beginFrame();
    beginFrame();
    EXPECT_EQ(reports.count(2, L"!USE_MULTI_THREADING",
                            L"using multi-threading for TiledLODTexture; may lead to problems?"),
              1U)
        << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
}

TEST_F(TiledLODTextureTest, ARequestOutsideAnyFrameMakesTheManager) {
    forgetManager();
    EXPECT_TRUE(request(*root));
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), s_rootSize);
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
    TiledLODTexture::killManager();
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), 0U);
}

TEST_F(TiledLODTextureTest, TheBudgetHoldsForWhatTheFrameDoesNotUse) {
    TiledLODTexture::setMaxTextureMemory(2 * s_childSize);
    asynchronous = false;
    beginFrame();
    for (unsigned i = 0; i < 4; ++i)
        request(*root->child(i));
    endFrame();
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), 4 * s_childSize) << "all were used";
    beginFrame();
    request(*root->child(0));
    endFrame();
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), 2 * s_childSize);
    beginFrame();
    request(*root->child(0));
    EXPECT_EQ(pyramid->calls().size(), 4U);
    request(*root->child(1));
    EXPECT_EQ(pyramid->calls().size(), 5U) << "it had been dropped";
    endFrame();
}

TEST_F(TiledLODTextureTest, ANewManagerHasTheBudgetThatWasSet) {
    forgetManager();
    TiledLODTexture::setMaxTextureMemory(s_childSize);
    asynchronous = false;
    beginFrame();
    reports.clear();
    request(*root->child(0));
    request(*root->child(1));
    beginFrame();
    endFrame();
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), s_childSize);
}

/// The exit status of a process of its own, in which nobody has set a budget: the mebibytes that are kept.
void exitWithMemoryKept() {
    const RecordedReports reports;
    const SO<FakePyramid> pyramid(new FakePyramid(8192, 1));
    const SO<TiledLODTexture> texture(new TiledLODTexture(pyramid.get()));
    const auto view = viewFromAbove(1.0);
    const auto request = [&](const GeometryPatch & patch) {
        bool incomplete = false;
        texture->request(&patch, nullptr, view.get(), 1000, 1000, 1.0, Point(), 0.0, false, false,
                         incomplete);
    };
    // Each patch is a root, and takes a texture of its own of 1 MiB.
    std::vector<SO<FakePatch>> patches;
    beginFrame();
    for (unsigned i = 0; i < 140; ++i) {
        patches.push_back(patchAt(8.0 * i, 0.0, 8.0));
        request(*patches.back());
    }
    beginFrame();
    request(*patches[0]);
    endFrame();
    std::_Exit(static_cast<int>(TiledLODTexture::usedTextureMemory() / s_mebibyte));
}

TEST(TiledLODTextureDeathTest, The128MebibytesAreTheBudgetThatNobodySet) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(exitWithMemoryKept(), testing::ExitedWithCode(128), "");
}

TEST_F(TiledLODTextureTest, AnIdleWorkerEndsAtOnce) {
    request(*root);
    requestUntilComplete(*child);
    const double before = NBX::NBXTime::now();
    TiledLODTexture::killManager();
    EXPECT_LT(NBX::NBXTime::now() - before, 0.5);
}

TEST_F(TiledLODTextureTest, TheMemoryOfATextureThatGoesIsFreedAtTheEndOfTheFrame) {
    request(*root);
    const SO<TiledLODTexture> other(new TiledLODTexture(pyramid.get()));
    request(*other, *root, 0.0);
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), 2 * s_rootSize);
    beginFrame();
    texture = nullptr;
    endFrame();
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), s_rootSize);
}

TEST_F(TiledLODTextureTest, ATextureMayGoWhileItIsBeingPrepared) {
    const SO<Semaphore> arrived(new Semaphore), go(new Semaphore);
    pyramid->during = [&](double width) {
        if (width > 600.0) return;
        arrived->increase();
        go->decrease();
    };
    request(*grandchild);
    endFrame();
    arrived->decrease();
    texture = nullptr;
    go->increase();
    arrived->decrease();
    go->increase();
    TiledLODTexture::killManager();
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), 0U);
}

TEST_F(TiledLODTextureTest, TheManagerMayEndWhileATextureIsPrepared) {
    request(*root);
    const SO<Semaphore> arrived(new Semaphore);
    std::atomic<bool> isDone{false};
    pyramid->during = [&](double) {
        arrived->increase();
        Thread::sleep(0.02);
        isDone = true;
    };
    request(*child);
    request(*root->child(1));
    endFrame();
    arrived->decrease();
    TiledLODTexture::killManager();
    EXPECT_TRUE(isDone) << "it is waited for";
    EXPECT_LE(pyramid->calls().size(), 3U);
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), 0U);
    pyramid->during = nullptr;
    makeManagerQuietly();
    EXPECT_TRUE(requestUntilComplete(*child));
}

TEST_F(TiledLODTextureTest, AnOriginSetWhileTexturesWaitIsThatOfTheNextScene) {
    const SO<TextureGL> ofRoot = request(*root);
    const SO<Semaphore> arrived(new Semaphore), go(new Semaphore);
    const SO<FakePyramid> other(new FakePyramid(1024, 11));
    other->during = [&](double width) {
        if (width > 600.0) return;
        arrived->increase();
        go->decrease();
    };
    const SO<TiledLODTexture> holding(new TiledLODTexture(other.get()));
    request(*holding, *child, 0.0);
    request(*child);
    endFrame();
    arrived->decrease();
    GeoTransformation::setNBXOrigin({5000.0, 0.0, 7000.0});
    go->increase();
    while (TiledLODTexture::pendingRequests() > 0)
        Thread::sleep(0.001);
    GeoTransformation::setNBXOrigin({});
    const SO<TextureGL> ofChild = requestUntilComplete(*child);
    ASSERT_NE(ofChild, ofRoot);
    ASSERT_EQ(pyramid->widths(), "1024 512 ");
    EXPECT_EQ(pyramid->calls()[1].minX, 0.0);
    EXPECT_EQ(pyramid->calls()[1].maxY, 128.0);
    const Point corner = ofChild->getMatrix() * Point(512.0, 128.0, 0.0);
    EXPECT_NEAR(corner.x, 1.0, 1e-12);
    EXPECT_NEAR(corner.y, 1.0, 1e-12);
}

TEST_F(TiledLODTextureTest, ATextureThatIsNotAskedForAnyMoreIsForgottenAfterFiveFrames) {
    request(*root);
    holdWorker();
    request(*child);
    for (int frame = 1; frame <= 5; ++frame) {
        beginFrame();
        EXPECT_EQ(TiledLODTexture::pendingRequests(), 1U) << frame;
    }
    beginFrame();
    EXPECT_EQ(TiledLODTexture::pendingRequests(), 0U);
    go->increase();
    TiledLODTexture::killManager();
    EXPECT_EQ(pyramid->widths(), "1024 ");
}

TEST_F(TiledLODTextureTest, CountsTheTexturesThatWait) {
    request(*root);
    EXPECT_EQ(TiledLODTexture::pendingRequests(), 0U);
    request(*child);
    EXPECT_EQ(TiledLODTexture::pendingRequests(), 1U);
    request(*grandchild);
    request(*child->child(1));
    EXPECT_EQ(TiledLODTexture::pendingRequests(), 3U);
    requestUntilComplete(*grandchild);
    requestUntilComplete(*child->child(1));
    requestUntilComplete(*child);
    EXPECT_EQ(TiledLODTexture::pendingRequests(), 0U);
    request(*root->child(1));
    TiledLODTexture::killManager();
    EXPECT_EQ(TiledLODTexture::pendingRequests(), 0U);
}

TEST_F(TiledLODTextureTest, KeepsItsPyramidWhenStored) {
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(4, 2, NBX::LS_RGB));
    const SO<MemoryTiledGeoImagePyramid> stored(
        new MemoryTiledGeoImagePyramid(image.get(), Bounds(Point(10.0, 20.0, 0.0), Point(14.0, 22.0, 0.0))));
    texture = new TiledLODTexture(stored.get());
    texture->magFilter(TextureGL::FM_Nearest);
    const SO<TiledLODTexture> read = roundTrip(texture);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->boundingBox(), texture->boundingBox());
    EXPECT_EQ(read->magFilter(), TextureGL::FM_Nearest);
    EXPECT_EQ(read->pyramid()->overviews(), stored->overviews());

    const SO<TiledLODTexture> none = roundTrip(SO<TiledLODTexture>(new TiledLODTexture(nullptr)));
    ASSERT_TRUE(none);
    EXPECT_FALSE(none->pyramid());
    EXPECT_EQ(none->minFilter(), TextureGL::FM_Linear);

    EXPECT_EQ(RecordedAttributes::of(*texture, true), std::vector<std::string>{"pyramid"});
    EXPECT_TRUE(RecordedAttributes::of(*none, true).empty()) << "no pyramid is the default";
}

TEST_F(TiledLODTextureTest, ShowsThePyramidThatWasReadIntoItLast) {
    request(*root);
    EXPECT_TRUE(refine(*root, 0.0));
    const SO<FakePyramid> other(new FakePyramid(1024, 1));
    ReadingStream stream;
    stream.objects["pyramid"] = other.get();
    texture->serialize(stream);
    ASSERT_EQ(texture->pyramid(), other);
    EXPECT_FALSE(refine(*root, 0.0)) << "it has no finer level";
    request(*root);
    EXPECT_EQ(other->widths(), "1024 ");
}

/// A moving view asks for a thousand patches of textures that come and go.
TEST_F(TiledLODTextureTest, ServesAMovingViewWhileTexturesComeAndGo) {
    const SO<FakePatch> tree = FakePatch::oblong(0.0, 0.0, 1024.0, 256.0, 5);
    std::vector<GeometryPatch *> patches{tree.get()};
    for (std::size_t i = 0; i < patches.size(); ++i)
        for (unsigned k = 0; k < patches[i]->children(); ++k)
            patches.push_back(patches[i]->child(k).get());
    ASSERT_GT(patches.size(), 1000U);
    TiledLODTexture::setMaxTextureMemory(16 << 20);

    constexpr int frames = 120;
    std::vector<SO<TiledLODTexture>> textures(3);
    SO<TextureGL> last;
    for (int frame = 0; frame < frames; ++frame) {
        SO<TiledLODTexture> & changing = textures[static_cast<unsigned>(frame) % textures.size()];
        if (!changing || frame % 7 == 0)
            changing = new TiledLODTexture(SO<FakePyramid>(new FakePyramid(16384 / 16, 11)).get());
        beginFrame();
        for (unsigned i = 0; i < 30; ++i) {
            const std::size_t k = (static_cast<std::size_t>(frame) * 10 + i * 37) % patches.size();
            for (const auto & asked : textures)
                if (asked) last = request(*asked, *patches[k], 0.0);
            ASSERT_TRUE(last);
        }
        endFrame();
    }
    textures.clear();
    beginFrame();
    endFrame();
    for (int i = 0; i < 5000 && TiledLODTexture::usedTextureMemory() > 0; ++i) {
        beginFrame();
        endFrame();
        Thread::sleep(0.001);
    }
    EXPECT_EQ(TiledLODTexture::usedTextureMemory(), 0U);
}

// On a terrain.

/// A flat square of 64 units from above, one unit per pixel, under an image of four colours.
class TiledLODTextureGLTest : public GLFixture {
protected:
    void SetUp() override {
        makeManagerQuietly();
        GLFixture::SetUp();
        terrain = makeTerrain(50);
        root->append(new NBX::Camera(new NBX::LookAt({32, 10, 32}, {32, 0, 32}, {0, 0, 1}),
                                     new NBX::Ortho(-32, 32, -32, 32, 1, 20)));
    }
    void TearDown() override {
        terrain = nullptr;
        TiledLODTexture::killManager();
        GLFixture::TearDown();
        makeManagerQuietly();
    }

    static SO<ZMT::CORE::Terrain> makeTerrain(unsigned verticesPerPatch) {
        const auto grid =
            TestTerrain::grid({65, 65, -0.5, -0.5, 1.0, 1.0}, [](unsigned, unsigned) { return 0.0; });
        testing::internal::CaptureStderr();
        const auto tree = ZMT::CORE::CreateGeometryTree::create(grid.get(), verticesPerPatch);
        testing::internal::GetCapturedStderr();
        return new ZMT::CORE::Terrain(grid.get(), tree.get());
    }
    void show(ZMT::RASTER::TiledGeoImagePyramid * pyramid) {
        using Textures = NBX::Array<NBX::SO<ZMT::CORE::TerrainTexture>>;
        const SO<Textures> textures(new Textures);
        textures->append(new TiledLODTexture(pyramid));
        root->append(new ZMT::CORE::DecalTerrainTexturingEffect(textures.get()));
        root->append(terrain.get());
    }
    /// Of 256 by 256 pixels over the terrain and 16 units less on each side.
    static SO<MemoryTiledGeoImagePyramid> fourColors(NBX::LayerSequence layers = NBX::LS_RGBA) {
        const SO<NBX::MemoryImage> image(new NBX::MemoryImage(256, 256, layers));
        for (int y = 0; y < 256; ++y)
            for (int x = 0; x < 256; ++x)
                image->setColor(x, y, NBX::Color(x < 128 ? 0.0F : 1.0F, y < 128 ? 0.0F : 1.0F, 0.5F, 1.0F));
        return new MemoryTiledGeoImagePyramid(image.get(),
                                              Bounds(Point(16.0, 16.0, 0.0), Point(48.0, 48.0, 0.0)));
    }
    void expectFourColors(const SO<NBX::Image> & picture) {
        using Texel = std::array<int, 4>;
        EXPECT_EQ(pixel(picture, 20, 20), (Texel{0, 0, 128, 255})) << "south-west";
        EXPECT_EQ(pixel(picture, 44, 20), (Texel{255, 0, 128, 255})) << "south-east";
        EXPECT_EQ(pixel(picture, 20, 44), (Texel{0, 255, 128, 255})) << "north-west";
        EXPECT_EQ(pixel(picture, 44, 44), (Texel{255, 255, 128, 255})) << "north-east";
        EXPECT_EQ(pixel(picture, 31, 17), (Texel{0, 0, 128, 255}));
        EXPECT_EQ(pixel(picture, 32, 17), (Texel{255, 0, 128, 255}));
        const Texel ground = pixel(picture, 8, 8);
        for (const auto & [x, y] :
             {std::pair(14, 32), std::pair(49, 32), std::pair(32, 14), std::pair(32, 49)})
            EXPECT_EQ(pixel(picture, x, y), ground) << x << ", " << y << ": beyond the image";
        EXPECT_EQ(ground, (Texel{255, 255, 255, 255}));
    }

    SO<ZMT::CORE::Terrain> terrain;
};

TEST_F(TiledLODTextureGLTest, ThePictureLiesWhereTheMapSays) {
    show(fourColors().get());
    expectFourColors(draw());
    EXPECT_FALSE(canvas->redisplayPending());
}

TEST_F(TiledLODTextureGLTest, BeyondAnImageWithoutAlphaIsTheGround) {
    show(fourColors(NBX::LS_RGB).get());
    expectFourColors(draw());
}

TEST_F(TiledLODTextureGLTest, APictureThatMayComeLaterIsTheSameInTheEnd) {
    canvas->setRenderingMode(1);
    show(fourColors().get());
    SO<NBX::Image> picture = draw();
    for (int i = 0; i < 1000 && canvas->redisplayPending(); ++i)
        picture = draw();
    expectFourColors(picture);
}

/// Patches meet in the middle of the picture. Each has 512 pixels of the finest level: as many as a texture
/// takes.
TEST_F(TiledLODTextureGLTest, TexturesMeetWithoutSeams) {
    const NBX::Color blue(0.0F, 0.0F, 1.0F, 1.0F);
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(1024, 1024, NBX::LS_RGB));
    for (int y = 0; y < image->height(); ++y)
        for (int x = 0; x < image->width(); ++x)
            image->setColor(x, y, blue);
    const SO<MemoryTiledGeoImagePyramid> pyramid(
        new MemoryTiledGeoImagePyramid(image.get(), Bounds(Point(0.0, 0.0, 0.0), Point(64.0, 64.0, 0.0))));
    for (const unsigned vertices : {50U, 1200U}) {
        terrain = makeTerrain(vertices);
        for (const double half : {16.0, 4.0, 2.0, 1.0, 0.5}) {
            // No centre of a pixel lies on the centre of a texel.
            const double x = 32.0 + 0.01 * half;
            root->clear();
            root->append(new NBX::Camera(new NBX::LookAt({x, 10, 32}, {x, 0, 32}, {0, 0, 1}),
                                         new NBX::Ortho(-half, half, -half, half, 1, 20)));
            show(pyramid.get());
            const SO<NBX::Image> picture = draw();
            for (int i = 0; i < picture->width(); ++i)
                ASSERT_EQ(pixel(picture, i, 20), (std::array<int, 4>{0, 0, 255, 255})) << i << ", " << half;
        }
    }
}

TEST_F(TiledLODTextureGLTest, TheOpenGLTexturesGoWithTheTexture) {
    // Names grow from test to test.
    constexpr unsigned bound = 1U << 17;
    const Names before = countNames(bound);
    show(fourColors().get());
    draw();
    EXPECT_GT(countNames(bound).textures, before.textures);
    root->clear();
    draw();
    beginFrame();
    endFrame();
    // The empty texture stays.
    EXPECT_LE(countNames(bound).textures, before.textures + 1);
}

} // namespace
