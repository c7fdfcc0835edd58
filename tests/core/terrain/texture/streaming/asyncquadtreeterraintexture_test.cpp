#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include <support/cancelingdisplay.h>
#include <support/damagedfiles.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

#include "core/terrain/texture/streaming/asyncquadtreeterraintexture_impl.h"
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/thread.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/raster/geoimage.h>

#include "oblongsource.h"
#include "streamingtexturefile.h"

using namespace ZMT::CORE;
using NBX::SO;
using StreamingTextureFile::Bytes;
using StreamingTextureFile::Decoder;
using StreamingTextureFile::Ref;
using StreamingTextureFile::Tile;
using ZMT::RASTER::GeoImage;
using ZMT::RASTER::TiledGeoImage;
using ZMT::RASTER::TiledGeoImagePyramid;
namespace fs = std::filesystem;
using Texture = AsyncQuadtreeTerrainTexture;

namespace {

constexpr std::uint64_t s_key = 0x8899aabbccddeeffULL;

/// Notes when its children are let go.
class UnloadingPatch : public FakePatch {
    NBX_TEMPLATE_CLASS(UnloadingPatch, FakePatch)
public:
    UnloadingPatch(const NBX::Bounds & box, int * unloads, const SO<Children> & children = nullptr)
        : FakePatch(box, children), unloads_(unloads) {}
    void unloadChildren() override { ++*unloads_; }

private:
    int * const unloads_;
};

/// A pyramid that cannot be read.
class BrokenPyramid : public FakePyramid {
    NBX_TEMPLATE_CLASS(BrokenPyramid, FakePyramid)
public:
    BrokenPyramid() : FakePyramid(64, 3) {
        for (unsigned i = 0; i < 3; ++i)
            static_cast<FakeLevel &>(*overview(i)).hasFailed = true;
    }
};

class AsyncQuadtreeTerrainTextureTest : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_TRUE(reports.empty()) << reports;
        GeoTransformation::setNBXOrigin({});
    }

    std::string path(const char * name = "a.zts") const { return fs::temp_directory_path() / name; }
    std::wstring wide(const char * name = "a.zts") const {
        return NBX::StringUtils::Utf8String2WString(path(name));
    }
    Bytes contents(const char * name = "a.zts") const { return NBX::File::contents(path(name)); }

    /// The whole file.
    Bytes write(const SO<GeometryPatch> & root, const SO<TiledGeoImagePyramid> & pyramid,
                unsigned tileSize = 64, std::uint64_t key = 0, const StreamingTextureOptions & options = {}) {
        EXPECT_TRUE(Texture::create(wide(), root, pyramid, tileSize, key, options));
        return contents();
    }
    Tile writeTile(const SO<GeometryPatch> & root, const SO<TiledGeoImagePyramid> & pyramid,
                   unsigned tileSize = 64) {
        return Decoder(write(root, pyramid, tileSize)).root();
    }

    const TemporaryFolder folder;
    RecordedReports reports;
};

/// Whether a tile holds, pixel by pixel, what the level of the pyramid has there.
void expectPixels(const Tile & tile, const TiledGeoImagePyramid & pyramid, unsigned level) {
    const SO<TiledGeoImage> overview = pyramid.overview(level);
    const double sizeX = overview->pixelSizeX(), sizeY = overview->pixelSizeY();
    ASSERT_EQ(tile.format, 0U);
    ASSERT_EQ(tile.pixels.size(), std::size_t(tile.width) * tile.height * 4);
    EXPECT_NEAR((tile.image[2] - tile.image[0]) / (tile.width - 1), sizeX, 1e-9);
    EXPECT_NEAR((tile.image[3] - tile.image[1]) / (tile.height - 1), sizeY, 1e-9);
    const double firstX = (tile.image[0] - overview->minX()) / sizeX - 0.5;
    const double firstY = (tile.image[1] - overview->minY()) / sizeY - 0.5;
    EXPECT_NEAR(firstX, std::round(firstX), 1e-9) << "centres of pixels";
    EXPECT_NEAR(firstY, std::round(firstY), 1e-9);
    const SO<NBX::Image> whole =
        overview->getImage(0, 0, unsigned(overview->pixelsX()), unsigned(overview->pixelsY()));
    for (unsigned y = 0; y < tile.height; ++y)
        for (unsigned x = 0; x < tile.width; ++x) {
            const NBX::Color expected =
                whole->getColor(int(std::lround(firstX)) + int(x), int(std::lround(firstY)) + int(y));
            for (unsigned c = 0; c < 4; ++c)
                ASSERT_NEAR(tile.pixels[(std::size_t(y) * tile.width + x) * 4 + c], expected[c] * 255.0F,
                            0.01)
                    << x << " " << y << " " << c;
        }
}

/// The same for all below, each on its patch, and nowhere where there is no patch.
void expectTree(const Tile & tile, const TiledGeoImagePyramid & pyramid, const FakePatch & patch,
                unsigned tileSize, int parentLevel, unsigned & tiles) {
    ++tiles;
    const NBX::Bounds box = patch.boundingBox();
    const auto low = box.getLLF(), high = box.getURB();
    EXPECT_EQ(tile.patch, (std::array<double, 4>{low.x, low.z, high.x, high.z}));
    const double dx = 0.02 * (high.x - low.x), dy = 0.02 * (high.z - low.z);
    const int level =
        pyramid.getOverviewIndex(low.x - dx, low.z - dy, high.x + dx, high.z + dy, tileSize, tileSize);
    ASSERT_GE(level, 0);
    EXPECT_FALSE(level == 0 && parentLevel == 0) << "nothing can be gained";
    EXPECT_LE(std::max(tile.width, tile.height), tileSize);
    expectPixels(tile, pyramid, unsigned(level));
    // The pixels that the patch and 2 % on each side touch, and no other ones.
    const auto rect =
        pyramid.overview(unsigned(level))->pixelRect(low.x - dx, low.z - dy, high.x + dx, high.z + dy);
    const SO<TiledGeoImage> overview = pyramid.overview(unsigned(level));
    EXPECT_EQ(tile.width, rect.width);
    EXPECT_EQ(tile.height, rect.height);
    EXPECT_NEAR(tile.image[0], overview->minX() + (double(rect.x) + 0.5) * overview->pixelSizeX(), 1e-9);
    EXPECT_NEAR(tile.image[1], overview->minY() + (double(rect.y) + 0.5) * overview->pixelSizeY(), 1e-9);
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_EQ(tile.hasChild(i), patch.children() > i && level > 0) << i;
        if (!tile.hasChild(i)) continue;
        EXPECT_LT(tile.child(i).ref.offset, tile.ref.offset);
        expectTree(tile.child(i), pyramid, static_cast<FakePatch &>(*patch.child(i)), tileSize, level, tiles);
    }
}

TEST_F(AsyncQuadtreeTerrainTextureTest, EveryTileHoldsThePixelsOfItsPatch) {
    const auto pyramid = OblongSource::pyramid();
    const auto root = OblongSource::patches(4);
    const Tile tile = writeTile(root, pyramid);
    unsigned tiles = 0;
    expectTree(tile, *pyramid, *root, 64, -1, tiles);
    EXPECT_GT(tiles, 20U);
    EXPECT_EQ(tiles, tile.count());
}

TEST_F(AsyncQuadtreeTerrainTextureTest, TilesReachTwoPercentBeyondTheirPatch) {
    // Columns 64 to 192 and rows 32 to 96: 2.56 columns and 1.28 rows more on each side.
    const Tile tile =
        writeTile(FakePatch::oblong(1128.0, 2016.0, 256.0, 32.0, 0), OblongSource::pyramid(), 300);
    EXPECT_EQ(tile.width, 134U);
    EXPECT_EQ(tile.height, 68U);
    EXPECT_EQ(tile.image[0], 1000.0 + 61.5 * 2.0);
    EXPECT_EQ(tile.image[1], 2000.0 + 30.5 * 0.5);
    EXPECT_EQ(tile.patch, (std::array<double, 4>{1128.0, 2016.0, 1384.0, 2048.0}));
}

TEST_F(AsyncQuadtreeTerrainTextureTest, TheTreeEndsWhereTheRasterEnds) {
    const auto count = [&](unsigned levels) {
        return writeTile(OblongSource::patches(levels), OblongSource::pyramid()).count();
    };
    EXPECT_EQ(count(0), 1U);
    EXPECT_EQ(count(1), 5U);
    EXPECT_EQ(count(2), 21U);
    // A quarter and its margin take 67 pixels of the finest level: another level of tiles.
    EXPECT_EQ(count(3), 85U);
    EXPECT_EQ(count(5), 85U);
}

TEST_F(AsyncQuadtreeTerrainTextureTest, APyramidOfOneLevelMakesOneTile) {
    const SO<NBX::Image> image = OblongSource::image(NBX::LS_RGBA, 1, 1);
    const SO<TiledGeoImagePyramid> pyramid(new ZMT::RASTER::MemoryTiledGeoImagePyramid(
        image.get(), NBX::Bounds({1000.0, 2000.0, 0.0}, {1512.0, 2064.0, 0.0})));
    ASSERT_EQ(pyramid->overviews(), 1U);
    const Tile tile = writeTile(OblongSource::patches(3), pyramid);
    EXPECT_EQ(tile.count(), 1U);
    EXPECT_EQ(tile.width, 2U) << "a single pixel is halved";
    EXPECT_EQ(tile.image, (std::array<double, 4>{1128.0, 2016.0, 1384.0, 2048.0}));
}

TEST_F(AsyncQuadtreeTerrainTextureTest, TheHeaderSpansTheFile) {
    const Bytes bytes = write(OblongSource::patches(2), OblongSource::pyramid());
    const Decoder decoder(bytes);
    const Bytes header = decoder.header();
    EXPECT_EQ(std::string(header.begin(), header.begin() + 8), "ZMT-AQTT");
    EXPECT_EQ(decoder.dataSize(), bytes.size());
    for (std::size_t i = 16; i < 256; ++i)
        EXPECT_TRUE(header[i] == 0 || (i >= 24 && i < 40)) << i;
    EXPECT_EQ(bytes.size() % 16, 0U);
    const auto end = decoder.rootRef().offset + decoder.rootRef().storedSize;
    EXPECT_EQ((end + 15) / 16 * 16, bytes.size()) << "the root stands last";
}

TEST_F(AsyncQuadtreeTerrainTextureTest, BlocksFollowEachOtherWithZerosBetween) {
    const Bytes bytes = write(OblongSource::patches(2), OblongSource::pyramid());
    std::vector<StreamingTextureFile::Ref> refs;
    const std::function<void(const Tile &)> collect = [&](const Tile & tile) {
        for (unsigned i = 0; i < 4; ++i)
            if (tile.hasChild(i)) collect(tile.child(i));
        refs.push_back(tile.ref);
    };
    collect(Decoder(bytes).root());
    std::uint64_t expected = 256;
    for (const auto & ref : refs) {
        EXPECT_EQ(ref.offset, expected) << "in the order of the walk";
        for (expected += ref.storedSize; expected % 16 != 0; ++expected)
            EXPECT_EQ(bytes[expected], 0);
    }
    EXPECT_EQ(expected, bytes.size());
}

TEST_F(AsyncQuadtreeTerrainTextureTest, SceneCoordinatesBecomeMapCoordinates) {
    GeoTransformation::setNBXOrigin({1000.0, 70.0, 2000.0});
    const auto root = FakePatch::oblong(0.0, 0.0, 512.0, 64.0, 1);
    const Bytes bytes = write(root, OblongSource::pyramid());
    GeoTransformation::setNBXOrigin({});
    EXPECT_EQ(bytes, write(OblongSource::patches(1), OblongSource::pyramid()));
}

TEST_F(AsyncQuadtreeTerrainTextureTest, AStreamBeginsWhereTheFileStands) {
    const Bytes alone = write(OblongSource::patches(1), OblongSource::pyramid());
    for (const unsigned base : {16U, 160U, 5U, 1001U}) {
        const SO<NBX::File> file(new NBX::File(path("b"), NBX::WM_Create));
        const Bytes front(base, 0xee);
        file->write(front.data(), front.size());
        ASSERT_TRUE(Texture::create(file, OblongSource::patches(1), OblongSource::pyramid(), 64, s_key));
        EXPECT_EQ(file->position(), file->size()) << "what follows is appended";
        const Bytes bytes = contents("b");
        EXPECT_TRUE(std::equal(front.begin(), front.end(), bytes.begin()));
        const Decoder decoder(bytes, base, s_key);
        EXPECT_EQ(decoder.dataSize(), bytes.size() - base);
        const Tile root = decoder.root();
        EXPECT_EQ(root.count(), 5U);
        EXPECT_EQ(root.child(0).ref.offset, 256U);
        EXPECT_EQ((root.child(1).ref.offset + base) % 16, 0U) << "multiples of 16 of the file's positions";
        EXPECT_EQ(bytes.size() % 16, 0U);
        EXPECT_EQ(root.pixels, Decoder(alone).root().pixels);
        const auto read = Texture::load(StreamingTextureFile::inMemory(bytes), base, s_key);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->boundingBox(), NBX::Bounds({1000.0, -1e42, 2000.0}, {1512.0, 1e42, 2064.0}));
        if (base % 16 == 0) {
            const SO<NBX::File> plain(new NBX::File(path("c"), NBX::WM_Create));
            plain->write(front.data(), front.size());
            ASSERT_TRUE(Texture::create(plain, OblongSource::patches(1), OblongSource::pyramid(), 64, 0));
            const Bytes shifted = contents("c");
            EXPECT_TRUE(std::equal(alone.begin(), alone.end(), shifted.begin() + base)) << base;
        }
    }
}

TEST_F(AsyncQuadtreeTerrainTextureTest, AKeyScramblesHeaderAndBlocks) {
    const Bytes plain = write(OblongSource::patches(1), OblongSource::pyramid());
    const Bytes scrambled = write(OblongSource::patches(1), OblongSource::pyramid(), 64, s_key);
    ASSERT_EQ(plain.size(), scrambled.size());
    EXPECT_EQ(Decoder(scrambled, 0, s_key).header(), Decoder(plain).header());
    EXPECT_EQ(Decoder(scrambled, 0, s_key).root().pixels, Decoder(plain).root().pixels);
    EXPECT_NE(Bytes(scrambled.begin(), scrambled.begin() + 8), Bytes(plain.begin(), plain.begin() + 8));
    const auto load = [](const Bytes & bytes, std::uint64_t key) {
        return bool(Texture::load(StreamingTextureFile::inMemory(bytes), 0, key));
    };
    EXPECT_TRUE(load(plain, 0));
    EXPECT_TRUE(load(scrambled, s_key));
    EXPECT_FALSE(load(scrambled, 0));
    EXPECT_FALSE(load(scrambled, s_key + 1));
    EXPECT_FALSE(load(plain, s_key));
}

TEST_F(AsyncQuadtreeTerrainTextureTest, AFifthChildIsReportedAndHasNoTile) {
    const auto box = [](double x) { return NBX::Bounds({x, 0.0, 2000.0}, {x + 100.0, 0.0, 2064.0}); };
    std::vector<SO<GeometryPatch>> children;
    for (int i = 0; i < 5; ++i)
        children.emplace_back(new FakePatch(box(1000.0 + 100.0 * i)));
    const SO<GeometryPatch> root(new FakePatch(NBX::Bounds({1000.0, 0.0, 2000.0}, {1512.0, 0.0, 2064.0}),
                                               new NBX::Array<SO<GeometryPatch>>(std::move(children))));
    const Tile tile = writeTile(root, OblongSource::pyramid());
    EXPECT_EQ(reports.count(2, L"children <= 4", L"geometry patch has too many children: 5"), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
    EXPECT_EQ(tile.count(), 5U);
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(tile.child(i).patch[0], 1000.0 + 100.0 * i);
}

TEST_F(AsyncQuadtreeTerrainTextureTest, PatchesMayLetTheirChildrenGo) {
    int unloads = 0;
    std::vector<SO<GeometryPatch>> children;
    for (int i = 0; i < 4; ++i)
        children.emplace_back(new UnloadingPatch(
            NBX::Bounds({1000.0 + 128.0 * i, 0.0, 2000.0}, {1128.0 + 128.0 * i, 0.0, 2064.0}), &unloads));
    const NBX::Bounds whole({1000.0, 0.0, 2000.0}, {1512.0, 0.0, 2064.0});
    const SO<GeometryPatch> root(
        new UnloadingPatch(whole, &unloads, new NBX::Array<SO<GeometryPatch>>(std::move(children))));
    EXPECT_EQ(writeTile(root, OblongSource::pyramid()).count(), 5U);
    EXPECT_EQ(unloads, 5);
}

TEST_F(AsyncQuadtreeTerrainTextureTest, PatchesWithoutABoxOrBesideTheImageHaveNoTile) {
    const NBX::Bounds whole({1000.0, 0.0, 2000.0}, {1512.0, 0.0, 2064.0});
    std::vector<SO<GeometryPatch>> children;
    children.emplace_back(new FakePatch(NBX::Bounds()));
    children.emplace_back(new FakePatch(NBX::Bounds({3000.0, 0.0, 2000.0}, {3100.0, 0.0, 2064.0})));
    children.emplace_back(new FakePatch(NBX::Bounds({1000.0, 0.0, 2000.0}, {1000.0, 9.0, 2064.0})));
    children.emplace_back(new FakePatch(NBX::Bounds({1400.0, 0.0, 2000.0}, {1500.0, 0.0, 2064.0})));
    const SO<GeometryPatch> root(
        new FakePatch(whole, new NBX::Array<SO<GeometryPatch>>(std::move(children))));
    const Tile tile = writeTile(root, OblongSource::pyramid());
    EXPECT_FALSE(tile.hasChild(0));
    EXPECT_FALSE(tile.hasChild(1));
    EXPECT_FALSE(tile.hasChild(2)) << "no area";
    EXPECT_TRUE(tile.hasChild(3));
}

TEST_F(AsyncQuadtreeTerrainTextureTest, WithoutAnyTileTheStreamIsEmpty) {
    for (const SO<GeometryPatch> & root :
         {SO<GeometryPatch>(), SO<GeometryPatch>(FakePatch::oblong(0.0, 0.0, 10.0, 10.0, 1))}) {
        const Bytes bytes = write(root, OblongSource::pyramid());
        EXPECT_EQ(bytes.size(), 256U);
        EXPECT_EQ(Decoder(bytes).rootRef().rawSize, 0U);
        EXPECT_FALSE(Texture::load(StreamingTextureFile::inMemory(bytes), 0, 0));
    }
}

TEST_F(AsyncQuadtreeTerrainTextureTest, WhereTheCoarsestLevelFitsNoTileIsBlank) {
    for (const unsigned tileSize : {8U, 16U, 64U, 300U}) {
        const std::function<void(const Tile &)> check = [&](const Tile & tile) {
            for (std::size_t i = 3; i < tile.pixels.size(); i += 4)
                ASSERT_EQ(tile.pixels[i], 255);
            EXPECT_LE(std::max(tile.width, tile.height), tileSize);
            for (unsigned i = 0; i < 4; ++i)
                if (tile.hasChild(i)) check(tile.child(i));
        };
        check(writeTile(OblongSource::patches(2), OblongSource::pyramid(), tileSize));
    }
}

TEST_F(AsyncQuadtreeTerrainTextureTest, WhereTheCoarsestLevelIsTooLargeTheTileIsBlank) {
    const SO<TiledGeoImagePyramid> pyramid(new FakePyramid(64, 1));
    const auto image = OblongSource::pyramid();
    // A level of its own, without coarser ones.
    class OneLevel : public FakePyramid {
        NBX_TEMPLATE_CLASS(OneLevel, FakePyramid)
    public:
        explicit OneLevel(SO<TiledGeoImage> level) : FakePyramid(1, 1), level_(std::move(level)) {}
        unsigned overviews() const override { return 1; }
        SO<TiledGeoImage> overview(unsigned index) const override { return index == 0 ? level_ : nullptr; }

    private:
        const SO<TiledGeoImage> level_;
    };
    const SO<TiledGeoImagePyramid> fine(new OneLevel(image->overview(0)));
    const Tile tile = writeTile(OblongSource::patches(0), fine);
    EXPECT_EQ(tile.width, 64U);
    EXPECT_EQ(tile.height, 64U);
    for (std::size_t i = 3; i < tile.pixels.size(); i += 4)
        ASSERT_EQ(tile.pixels[i], 0);
}

TEST_F(AsyncQuadtreeTerrainTextureTest, AnyNumberOfThreadsWritesTheSameBytes) {
    StreamingTextureOptions options{StreamingTextureOptions::P_DXT1, 1};
    const Bytes one = write(OblongSource::patches(3), OblongSource::pyramid(), 32, s_key, options);
    for (const unsigned threads : {2U, 5U, 0U}) {
        options.threads = threads;
        EXPECT_TRUE(write(OblongSource::patches(3), OblongSource::pyramid(), 32, s_key, options) == one)
            << threads;
    }
}

TEST_F(AsyncQuadtreeTerrainTextureTest, PixelsAreStoredAsTheyAreWanted) {
    using Options = StreamingTextureOptions;
    for (const auto & [pixels, format] : {std::pair(Options::P_AsDelivered, 0U),
                                          std::pair(Options::P_RGBA, 0U), std::pair(Options::P_Luminance, 7U),
                                          std::pair(Options::P_DXT1, 9U), std::pair(Options::P_DXT3, 8U)}) {
        const Bytes bytes =
            write(OblongSource::patches(1), OblongSource::pyramid(), 64, 0, Options{pixels, 2});
        EXPECT_EQ(Decoder(bytes).root().format, format);
        EXPECT_EQ(Decoder(bytes).root().child(3).format, format);
    }
    const Tile grey = writeTile(OblongSource::patches(1), OblongSource::pyramid(NBX::LS_Luminance));
    EXPECT_EQ(grey.format, 7U);
}

TEST_F(AsyncQuadtreeTerrainTextureTest, CancelledNothingIsLeftOrTheOldFileStays) {
    const CancelingDisplay canceling;
    EXPECT_FALSE(Texture::create(wide(), OblongSource::patches(1), OblongSource::pyramid(), 64, 0));
    EXPECT_TRUE(folder.isEmpty());
    std::ofstream(path()) << "old";
    EXPECT_FALSE(Texture::create(wide(), OblongSource::patches(1), OblongSource::pyramid(), 64, 0));
    EXPECT_EQ(contents(), Bytes({'o', 'l', 'd'}));
}

/// Cancels at the second look.
class LateCancelingDisplay : public NBX::ProgressDisplay {
public:
    LateCancelingDisplay() : before_(NBX::Progress::setDisplay(this)) {}
    ~LateCancelingDisplay() override { NBX::Progress::setDisplay(before_); }
    void begin(const NBX::Progress & progress) override {
        title = progress.title();
        total = progress.totalValue();
    }
    bool update(const NBX::Progress &) override { return false; }
    void end(const NBX::Progress & progress) override { isFinished = progress.isFinished(); }

    std::string title;
    double total = 0.0;
    bool isFinished = false;

private:
    NBX::ProgressDisplay * before_;
};

/// Notes all values; the clock of a progress lets few of them through.
class WatchingDisplay : public NBX::ProgressDisplay {
public:
    WatchingDisplay() : before_(NBX::Progress::setDisplay(this)) {}
    ~WatchingDisplay() override { NBX::Progress::setDisplay(before_); }
    void begin(const NBX::Progress &) override {}
    bool update(const NBX::Progress & progress) override {
        values.push_back(progress.currentValue());
        return true;
    }
    void end(const NBX::Progress & progress) override { isFinished = progress.isFinished(); }

    std::vector<double> values;
    bool isFinished = false;

private:
    NBX::ProgressDisplay * before_;
};

/// Takes its time with every image.
class SlowPyramid : public FakePyramid {
    NBX_TEMPLATE_CLASS(SlowPyramid, FakePyramid)
public:
    SlowPyramid() : FakePyramid(1, 1) {}
    unsigned overviews() const override { return image_->overviews(); }
    SO<TiledGeoImage> overview(unsigned index) const override {
        Thread::sleep(0.01);
        return image_->overview(index);
    }

private:
    const SO<TiledGeoImagePyramid> image_ = OblongSource::pyramid();
};

TEST_F(AsyncQuadtreeTerrainTextureTest, TheProgressGoesFromPatchToPatch) {
    WatchingDisplay display;
    const SO<TiledGeoImagePyramid> slow(new SlowPyramid);
    write(OblongSource::patches(2), slow);
    EXPECT_TRUE(display.isFinished);
    ASSERT_GE(display.values.size(), 3U);
    EXPECT_TRUE(std::is_sorted(display.values.begin(), display.values.end()));
    EXPECT_GE(display.values.front(), 0.0);
    EXPECT_GT(display.values.back(), 0.5);
    EXPECT_LE(display.values.back(), 1.0);
}

TEST_F(AsyncQuadtreeTerrainTextureTest, CancelledAStreamStaysAsItIsAndNobodyReadsIt) {
    LateCancelingDisplay display;
    const SO<NBX::File> file(new NBX::File(path(), NBX::WM_Create));
    EXPECT_FALSE(Texture::create(file, OblongSource::patches(1), OblongSource::pyramid(), 64, s_key));
    EXPECT_EQ(display.title, "creating streaming texture");
    EXPECT_EQ(display.total, 1.0);
    EXPECT_FALSE(display.isFinished);
    const Bytes bytes = contents();
    ASSERT_GE(bytes.size(), 256U);
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 8), "ZMT-AQTT") << "not scrambled";
    EXPECT_EQ(Bytes(bytes.begin() + 8, bytes.begin() + 256), Bytes(248));
    EXPECT_FALSE(Texture::load(StreamingTextureFile::inMemory(bytes), 0, 0));
}

TEST_F(AsyncQuadtreeTerrainTextureTest, APyramidThatFailsIsReportedAndLeavesNothing) {
    const SO<TiledGeoImagePyramid> broken(new BrokenPyramid);
    EXPECT_FALSE(Texture::create(wide(), FakePatch::oblong(0.0, 0.0, 64.0, 16.0, 1), broken, 64, 0));
    EXPECT_EQ(
        reports.count(2, L"false", L"a part of the image could not be read; the texture is not complete"), 1U)
        << reports;
    reports.clear();
    EXPECT_TRUE(folder.isEmpty());
}

TEST_F(AsyncQuadtreeTerrainTextureTest, ImpossibleSizesAreReported) {
    for (const unsigned size : {0U, 16385U, 0xffffffffU})
        EXPECT_FALSE(Texture::create(wide(), OblongSource::patches(0), OblongSource::pyramid(), size, 0));
    EXPECT_EQ(reports.size(), 3U) << reports;
    reports.clear();
    EXPECT_FALSE(Texture::create(wide(), OblongSource::patches(0), nullptr, 64, 0));
    EXPECT_EQ(reports.count(0, L"pyramid", L"no image pyramid"), 1U) << reports;
    EXPECT_FALSE(Texture::create(SO<NBX::File>(), OblongSource::patches(0), OblongSource::pyramid(), 64, 0));
    EXPECT_EQ(reports.count(0, L"file", L"no file"), 1U) << reports;
    reports.clear();
    EXPECT_TRUE(folder.isEmpty());
}

TEST_F(AsyncQuadtreeTerrainTextureTest, AFolderThatIsMissingThrows) {
    EXPECT_THROW(Texture::create(L"/nowhere/a.zts", OblongSource::patches(0), OblongSource::pyramid(), 64, 0),
                 NBX::IOException);
}

// Opening.

TEST_F(AsyncQuadtreeTerrainTextureTest, LoadsByPath) {
    write(OblongSource::patches(1), OblongSource::pyramid(), 64, s_key);
    EXPECT_TRUE(Texture::load(wide(), s_key));
    EXPECT_FALSE(Texture::load(wide(), 0));
    EXPECT_FALSE(Texture::load(wide("none"), 0));
    EXPECT_EQ(reports.size(), 1U) << "of the file alone";
    reports.clear();
}

TEST_F(AsyncQuadtreeTerrainTextureTest, WhatIsNoStreamIsNotLoaded) {
    const Bytes good = write(OblongSource::patches(0), OblongSource::pyramid());
    const auto load = [](const Bytes & bytes, std::uint64_t offset = 0) {
        return bool(Texture::load(StreamingTextureFile::inMemory(bytes), offset, 0));
    };
    EXPECT_TRUE(load(good));
    EXPECT_FALSE(Texture::load(SO<AsyncFile>(), 0, 0));
    for (const std::uint64_t offset :
         {std::uint64_t(1), std::uint64_t(good.size() - 256), std::uint64_t(good.size() - 255),
          std::uint64_t(good.size()), std::uint64_t(good.size() + 1), std::uint64_t(1) << 40,
          std::numeric_limits<std::uint64_t>::max()})
        EXPECT_FALSE(load(good, offset)) << offset;
    for (const std::size_t byte : {0U, 7U, 16U, 23U}) {
        Bytes bad = good;
        bad[byte] ^= 1;
        EXPECT_FALSE(load(bad)) << byte;
    }
    Bytes cut = good;
    cut.pop_back();
    EXPECT_FALSE(load(cut));
    Bytes behind(64);
    behind.insert(behind.end(), good.begin(), good.end());
    EXPECT_TRUE(load(behind, 64));
    behind.pop_back();
    EXPECT_FALSE(load(behind, 64)) << "cut, though the file is longer than the stream";
    Bytes longer = good;
    longer.push_back(0);
    EXPECT_TRUE(load(longer)) << "something else may follow";
    Bytes rootless = good;
    StreamingTextureFile::setField(rootless, 32, std::uint32_t(0));
    EXPECT_FALSE(load(rootless));
    EXPECT_TRUE(reports.empty()) << reports;
}

/// Loads, waits for the root and looks at all tiles.
void visit(const Bytes & bytes) {
    const auto texture = NBX::soCast<AsyncQuadtreeTerrainTexture_Impl>(
        Texture::load(StreamingTextureFile::inMemory(bytes), 0, 0));
    if (!texture) return;
    texture->boundingBox();
    unsigned visited = 0;
    const std::function<void(TexturePatchRequest &)> walk = [&](TexturePatchRequest & node) {
        if (++visited > 100) return;
        node.get(1.0, true);
        for (const auto & child : node.children())
            if (child) walk(*child);
    };
    walk(*texture->root());
    EXPECT_LE(visited, 100U);
}

/// At most 32 KiB.
class SmallTexture : public AsyncQuadtreeTerrainTextureTest {
protected:
    Bytes small(std::uint64_t seed = 0) {
        using Options = StreamingTextureOptions;
        const Options::Pixels kinds[] = {Options::P_RGBA, Options::P_Luminance, Options::P_DXT1,
                                         Options::P_DXT3};
        const Bytes bytes =
            write(OblongSource::patches(1), OblongSource::pyramid(), 16, 0, Options{kinds[seed % 4], 1});
        EXPECT_LE(bytes.size(), 32768U);
        return bytes;
    }
};

TEST_F(SmallTexture, EveryTruncatedLengthIsRefused) {
    const Bytes bytes = small();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const ModestLook look(bytes.size());
        visit(Bytes(bytes.begin(), bytes.begin() + std::ptrdiff_t(size)));
        // As if the header had been told.
        Bytes cut(bytes.begin(), bytes.begin() + std::ptrdiff_t(size));
        if (size < 256 || size % 7 != 0) continue;
        StreamingTextureFile::setField(cut, 8, std::uint64_t(size));
        visit(cut);
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(SmallTexture, RandomChangesDoNoHarm) {
    std::mt19937 random{20261122};
    for (unsigned seed = 0; seed < 4; ++seed) {
        const Bytes bytes = small(seed);
        for (unsigned round = 0; round < randomChanges() / 4; ++round) {
            Bytes changed = bytes;
            const unsigned changes = 1 + random() % 4;
            for (unsigned i = 0; i < changes; ++i)
                changed[random() % changed.size()] = std::uint8_t(random());
            // The header, and the references in it, more often.
            if (round % 2 == 0) changed[random() % 64] = std::uint8_t(random());
            const ModestLook look(bytes.size());
            visit(changed);
            // Formats of pixels that there are not may be told.
            for (const NBX::ErrorReport & report : reports.reports())
                EXPECT_TRUE(report.message.find(L"pixel format") != std::wstring::npos) << reports;
            reports.clear();
        }
    }
}

/// The pixels of the root; nothing where it was refused.
Bytes pixelsOf(const Bytes & file, const Ref & root) {
    const TextureStream stream{StreamingTextureFile::inMemory(file), 0, file.size(), 0};
    const SO<TexturePatchRequest> node(
        new TexturePatchRequest(stream, {root.offset, root.rawSize, root.storedSize}, 0));
    const SO<NBX::TextureGL> texture = node->get(1.0, true);
    if (!texture) return {};
    const SO<NBX::Image> image = NBX::soCast<NBX::ImageTexture2DGL>(texture)->getImage();
    Bytes pixels;
    for (int y = 0; y < image->height(); ++y) {
        const auto * line = static_cast<const std::uint8_t *>(image->lineComponents(y));
        pixels.insert(pixels.end(), line, line + 2 * image->width()); // an alpha was added
    }
    return pixels;
}

TEST_F(SmallTexture, ChangesInsideADeflatedBlockAreNoticed) {
    Bytes pixels(32 * 32);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = std::uint8_t(i / 100 * 9);
    StreamingTextureFile::Encoder encoder;
    const Ref root = encoder.addDeflated(StreamingTextureFile::tileBytes(32, 32, 7, {0.0, 0.0, 10.0, 10.0},
                                                                         {0.0, 0.0, 10.0, 10.0}, {}, pixels));
    const Bytes bytes = encoder.finish();
    const Bytes shown = pixelsOf(bytes, root);
    ASSERT_EQ(shown.size(), 2 * pixels.size());
    unsigned refused = 0;
    for (std::uint32_t i = 0; i < root.storedSize; ++i)
        for (unsigned bit = 0; bit < 8; ++bit) {
            Bytes changed = bytes;
            changed[root.offset + i] ^= std::uint8_t(1U << bit);
            const Bytes now = pixelsOf(changed, root);
            EXPECT_TRUE(now.empty() || now == shown) << i << " " << bit;
            refused += now.empty() ? 1 : 0;
        }
    // But for bits that mean nothing: lengths of codes that do not occur, and what fills the last byte up.
    EXPECT_LE(0.95 * 8 * root.storedSize, refused);
}

} // namespace
