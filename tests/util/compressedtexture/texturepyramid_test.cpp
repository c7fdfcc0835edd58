#include <zmt/util/compressedtexture/texturepyramid.h>

#include <filesystem>
#include <fstream>
#include <random>

#include <gtest/gtest.h>

#include <nbx/data/memorydataresource.h>
#include <nbx/data/objectloader.h>
#include <nbx/image/image.h>
#include <nbx/object/exception.h>
#include <zmt/core/misc/externallinksolver.h>
#include <zmt/raster/geoimage.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramidreader.h>
#include <zmt/util/compressedtexture/texturepyramidtiledgeoimage.h>

#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include "pyramidfile.h"

namespace {

using namespace ZMT::UTIL;
using NBX::SO;
using ZMT::RASTER::GeoImage;

class TexturePyramidTest : public testing::Test {
protected:
    ~TexturePyramidTest() override { CompressedTexture::setEncryptionKey(0); }

    SO<TexturePyramid> load(const std::vector<std::uint8_t> & bytes) {
        folder.write("a.ztp", bytes);
        return CompressedTexture::load(folder.wide("a.ztp"));
    }
    SO<TexturePyramid> load(const PyramidFile & file) { return load(file.encode()); }

    /// The 6 by 4 pixels of the usual file; -1 where there are none.
    static std::vector<int> row(const SO<TexturePyramid> & pyramid) {
        const SO<NBX::Image> image = pyramid->overview(0)->getImage(0, 0, 6, 4);
        std::vector<int> result;
        for (int x = 0; x < 6; ++x)
            result.push_back(image ? *image->pixelComponentsU8(x, 3) : -1);
        return result;
    }

    PyramidFolder folder;
    const std::vector<int> usual = {10, 10, 10, 10, 20, 20};
};

TEST_F(TexturePyramidTest, TellsSizesAndExtent) {
    const SO<TexturePyramid> pyramid = load(PyramidFile());
    ASSERT_TRUE(pyramid);
    EXPECT_EQ(100.0, pyramid->minX());
    EXPECT_EQ(200.0, pyramid->minY());
    EXPECT_EQ(160.0, pyramid->maxX());
    EXPECT_EQ(212.0, pyramid->maxY());
    ASSERT_EQ(1U, pyramid->overviews());
    const SO<TexturePyramidTiledGeoImage> level = pyramid->level(0);
    EXPECT_EQ(6U, level->pixelsX());
    EXPECT_EQ(4U, level->pixelsY());
    EXPECT_EQ(10.0, level->pixelSizeX());
    EXPECT_EQ(3.0, level->pixelSizeY());
    EXPECT_EQ(100.0, level->minX());
    EXPECT_EQ(200.0, level->minY());
    EXPECT_EQ(160.0, level->maxX());
    EXPECT_EQ(212.0, level->maxY());
    EXPECT_EQ(4U, level->granularityX());
    EXPECT_EQ(5U, level->granularityY());
    EXPECT_EQ(1U, level->bands());
    EXPECT_EQ(2U, level->storedTiles());
    RecordedReports reports;
    EXPECT_FALSE(pyramid->overview(1));
    EXPECT_EQ(1U, reports.count(0, L"index < levels_.size()", L"no such level: 1"));
}

TEST_F(TexturePyramidTest, PixelsOfOldVersionsReachFromCentreToCentre) {
    for (const std::uint32_t version : {1U, 2U}) {
        PyramidFile file;
        file.version = version;
        const SO<TexturePyramid> pyramid = load(file);
        ASSERT_TRUE(pyramid);
        EXPECT_EQ(12.0, pyramid->overview(0)->pixelSizeX());
        EXPECT_EQ(94.0, pyramid->overview(0)->minX());
        EXPECT_EQ(166.0, pyramid->overview(0)->maxX());
        EXPECT_EQ(4.0, pyramid->overview(0)->pixelSizeY());
        EXPECT_EQ(198.0, pyramid->overview(0)->minY());
        EXPECT_EQ(214.0, pyramid->overview(0)->maxY());
    }
}

TEST_F(TexturePyramidTest, ReadsAllVersionsDeflatedAndPlain) {
    for (const std::uint32_t version : {1U, 2U, 3U})
        for (const std::uint32_t compression : {0U, 1U})
            for (const bool deflates : {false, true}) {
                // Without sizes in front of the tiles, version 1 cannot hold deflated ones.
                if (version == 1 && compression == 0 && deflates) continue;
                PyramidFile file;
                file.version = version;
                file.compression = compression;
                file.deflates = deflates;
                const SO<TexturePyramid> pyramid = load(file);
                ASSERT_TRUE(pyramid);
                EXPECT_EQ(usual, row(pyramid)) << version << compression << deflates;
            }
}

TEST_F(TexturePyramidTest, Version1WithCompressionHasTheSizeInFrontOfEachTile) {
    PyramidFile file;
    file.version = 1;
    std::vector<std::uint8_t> bytes = file.encode();
    const auto position = getAt<std::uint64_t>(bytes, PyramidFile::table);
    EXPECT_EQ(PyramidFile::table + 16, position);
    EXPECT_EQ(usual, row(load(bytes)));
    putAt<std::uint32_t>(bytes, position, 1);
    RecordedReports reports;
    EXPECT_EQ(std::vector<int>(6, -1), row(load(bytes)));
    EXPECT_EQ(1U, reports.size()) << reports;
}

TEST_F(TexturePyramidTest, EmptyTilesLeaveTheTargetAsItIs) {
    PyramidFile file;
    file.tiles[0].clear();
    const SO<TexturePyramid> pyramid = load(file);
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 20, 20}), row(pyramid));
    EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 4, 4)) << "not a single tile";
    EXPECT_FALSE(pyramid->overview(0)->getImage(6, 0, 4, 4)) << "beside the level";
    EXPECT_FALSE(pyramid->overview(0)->getImage(-4, -4, 4, 4)) << "beside the level";
    const SO<NBX::Image> corner = pyramid->overview(0)->getImage(5, 3, 3, 3);
    ASSERT_TRUE(corner);
    EXPECT_EQ(20, *corner->pixelComponentsU8(0, 0));
    EXPECT_FALSE(pyramid->getGeoImage(100.0, 200.0, 130.0, 212.0, 8, 8)) << "nothing lies there";
    const SO<GeoImage> geo = pyramid->getGeoImage(140.0, 200.0, 160.0, 212.0, 8, 8);
    ASSERT_TRUE(geo);
    EXPECT_EQ(3, geo->width()) << "with one more column for filters";
}

TEST_F(TexturePyramidTest, TilesAndTheirLinesGoFromTheSouthWestRowByRow) {
    PyramidFile file;
    file.pixelsY = 7;
    file.tiles.assign(4, PyramidFile::tile(0));
    for (unsigned i = 0; i < 80; ++i)
        file.tiles[i / 20][i % 20] = static_cast<std::uint8_t>(100 + i);
    const SO<TexturePyramid> pyramid = load(file);
    ASSERT_TRUE(pyramid);
    for (const int first : {0, 2}) {
        const SO<NBX::Image> image = pyramid->overview(0)->getImage(first, first, 4, 5);
        ASSERT_TRUE(image);
        for (int y = first; y < first + 5; ++y)
            for (int x = first; x < first + 4; ++x)
                EXPECT_EQ(100 + 20 * (y / 5 * 2 + x / 4) + y % 5 * 4 + x % 4,
                          *image->pixelComponentsU8(x - first, y - first))
                    << x << " " << y;
    }
}

TEST_F(TexturePyramidTest, HeadersThatCannotBeRightAreRejected) {
    struct Case {
        const char * name;
        std::size_t offset;
        std::uint32_t value;
    };
    constexpr std::size_t level = PyramidFile::level;
    const Case cases[] = {{"magic", 0, 0},
                          {"behind the magic", 28, 1},
                          {"version", 32, 2},
                          {"no levels", 36, 0},
                          {"more levels than the file holds", 36, 2},
                          {"levels without end", 36, 0xFFFFFFFF},
                          {"level magic", level, 0},
                          {"level version 0", level + 32, 0},
                          {"level version 4", level + 32, 4},
                          {"no pixels in x", level + 36, 0},
                          {"no pixels in y", level + 40, 0},
                          {"no tile width", level + 44, 0},
                          {"no tile height", level + 48, 0},
                          {"tilesX does not match", level + 52, 3},
                          {"tilesX does not match", level + 52, 1},
                          {"tilesY does not match", level + 56, 2},
                          {"pixel format", level + 60, 12},
                          {"pixel format", level + 60, 0xFFFFFFFF},
                          {"tile size", level + 64, 19},
                          {"level beyond the end", 256, 100000},
                          {"level far beyond the end", 260, 0xFFFFFFFF}};
    EXPECT_TRUE(load(PyramidFile()));
    for (const Case & c : cases) {
        std::vector<std::uint8_t> bytes = PyramidFile().encode();
        putAt(bytes, c.offset, c.value);
        EXPECT_FALSE(load(bytes)) << c.name;
    }
}

TEST_F(TexturePyramidTest, ExtentsThatAreNoneAreRejected) {
    const double nan = std::nan(""), infinite = HUGE_VAL;
    const double cases[][4] = {
        {100, 200, 100, 240},      {100, 200, 160, 200},          {160, 200, 100, 240},
        {nan, 200, 160, 240},      {100, 200, 160, nan},          {-infinite, 200, 160, 240},
        {100, 200, infinite, 240}, {-1.7e308, 200, 1.7e308, 240}, {0, 200, 4e-320, 240}};
    for (const auto & extent : cases) {
        std::vector<std::uint8_t> bytes = PyramidFile().encode();
        std::memcpy(bytes.data() + 40, extent, sizeof extent);
        EXPECT_FALSE(load(bytes)) << extent[0] << " " << extent[2];
    }
}

/// The usual file, the level of which has one tile.
std::vector<std::uint8_t> withTile(std::uint32_t width, std::uint32_t height, std::uint32_t format,
                                   std::uint32_t bytes) {
    std::vector<std::uint8_t> result = PyramidFile().encode();
    const std::uint32_t fields[] = {6, 4, width, height, 1, 1, format, bytes};
    std::memcpy(result.data() + PyramidFile::level + 36, fields, sizeof fields);
    return result;
}

TEST_F(TexturePyramidTest, TilesThatNoImageCanHaveAreRejected) {
    constexpr std::uint32_t luminance = CompressedTexture::PF_Luminance8;
    EXPECT_TRUE(load(withTile(65536, 4, luminance, 4 * 65536)));
    EXPECT_FALSE(load(withTile(65537, 4, luminance, 4 * 65537)));
    EXPECT_FALSE(load(withTile(65537, 4, luminance, 0))) << "no bytes for many pixels";
    EXPECT_FALSE(load(withTile(6, 65537, luminance, 0)));
    EXPECT_FALSE(load(withTile(0x80000000, 0x80000000, luminance, 0)));
}

TEST_F(TexturePyramidTest, TilesThatTakeTooMuchMemoryAreRejected) {
    EXPECT_TRUE(load(withTile(8192, 8192, CompressedTexture::PF_Luminance8, 1U << 26)));
    EXPECT_FALSE(load(withTile(8193, 8192, CompressedTexture::PF_Luminance8, (1U << 26) + 8192)));
    EXPECT_TRUE(load(withTile(4096, 4096, CompressedTexture::PF_DXT1A, 1U << 23)));
    EXPECT_FALSE(load(withTile(4100, 4096, CompressedTexture::PF_DXT1A, 2050 * 4096)))
        << "pixels are larger than what is stored";
}

TEST_F(TexturePyramidTest, ATableBeyondTheFilesEndIsRejected) {
    PyramidFile file;
    file.pixelsX = 0x7FFFFFFF;
    file.tileWidth = 1;
    file.tileHeight = 4;
    EXPECT_FALSE(load(file)) << "the tables would take 24 GiB";
}

TEST_F(TexturePyramidTest, LevelsThatShareTheirTablesCannotTakeMoreThanTheFile) {
    PyramidFile file;
    file.pixelsX = 4000;
    file.tileWidth = 1;
    file.tiles.assign(4000, {});
    std::vector<std::uint8_t> bytes = file.encode();
    constexpr std::uint32_t levels = 100;
    bytes.insert(bytes.begin() + 264, 8 * (levels - 1), 0);
    for (std::uint32_t i = 0; i < levels; ++i)
        putAt<std::uint64_t>(bytes, 256 + 8 * i, PyramidFile::level + 8 * (levels - 1));
    putAt<std::uint32_t>(bytes, 36, 1);
    EXPECT_TRUE(load(bytes));
    putAt<std::uint32_t>(bytes, 36, levels);
    EXPECT_FALSE(load(bytes));
}

TEST_F(TexturePyramidTest, UnknownCompressionIsReportedWhenATileIsRead) {
    PyramidFile file;
    file.compression = 2;
    const SO<TexturePyramid> pyramid = load(file);
    ASSERT_TRUE(pyramid);
    RecordedReports reports;
    EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 4, 4));
    EXPECT_EQ(1U, reports.count(0, L"false", L"unsupported compression format"));
}

TEST_F(TexturePyramidTest, WhatTilesHaveBeyondTheLevelDoesNotShow) {
    const SO<TexturePyramid> pyramid = load(PyramidFile());
    ASSERT_TRUE(pyramid);
    const SO<NBX::Image> image = pyramid->overview(0)->getImage(4, -1, 4, 6);
    ASSERT_TRUE(image);
    ASSERT_EQ(4, image->width());
    ASSERT_EQ(6, image->height());
    for (int y = 0; y < 6; ++y) {
        const unsigned char * line = image->lineComponentsU8(y);
        const bool isInside = y >= 1 && y <= 4;
        EXPECT_EQ((std::vector<int>(line, line + 4)),
                  isInside ? (std::vector<int>{20, 20, 0, 0}) : std::vector<int>(4, 0))
            << y;
    }
}

TEST_F(TexturePyramidTest, ADamagedTileIsReportedAndLeavesNoHole) {
    std::vector<std::uint8_t> bytes = PyramidFile().encode();
    bytes[getAt<std::uint64_t>(bytes, PyramidFile::table) + 2] ^= 0xFF;
    const SO<TexturePyramid> pyramid = load(bytes);
    ASSERT_TRUE(pyramid);
    RecordedReports reports;
    EXPECT_EQ(std::vector<int>(6, -1), row(pyramid)) << "of both tiles";
    EXPECT_EQ(1U, reports.count(0, L"success", L"decompression of tile failed")) << reports;
    EXPECT_TRUE(pyramid->overview(0)->failed());
    EXPECT_TRUE(pyramid->overview(0)->getImage(4, 0, 2, 4)) << "of the other tile alone";
}

TEST_F(TexturePyramidTest, ATileBeyondTheFilesEndFails) {
    for (const std::uint64_t position : {std::uint64_t(1) << 20, UINT64_MAX, UINT64_MAX / 2}) {
        std::vector<std::uint8_t> bytes = PyramidFile().encode();
        putAt(bytes, PyramidFile::table, position);
        const SO<TexturePyramid> pyramid = load(bytes);
        ASSERT_TRUE(pyramid);
        RecordedReports reports;
        EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 4, 4));
        EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 4, 4));
        EXPECT_EQ(1U, reports.size()) << reports;
    }
}

TEST_F(TexturePyramidTest, AStoredSizeThatCannotBecomeATileFails) {
    for (const std::uint32_t size : {0U, 0xFFFFFFFFU}) {
        std::vector<std::uint8_t> bytes = PyramidFile().encode();
        putAt(bytes, PyramidFile::table + 16, size);
        RecordedReports reports;
        EXPECT_FALSE(load(bytes)->overview(0)->getImage(0, 0, 4, 4)) << size;
        EXPECT_EQ(1U, reports.size()) << reports;
    }
}

TEST_F(TexturePyramidTest, AFileThatShrinksInUseFails) {
    const SO<TexturePyramid> pyramid = load(PyramidFile());
    std::filesystem::resize_file(folder.file("a.ztp"), 300);
    RecordedReports reports;
    EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 6, 4));
    EXPECT_EQ(1U, reports.size()) << reports;
}

TEST_F(TexturePyramidTest, TilesThatWereReadStayInMemory) {
    const SO<TexturePyramid> pyramid = load(PyramidFile());
    const SO<NBX::Image> first = pyramid->overview(0)->getImage(0, 0, 4, 4);
    ASSERT_TRUE(first);
    *first->pixelComponentsU8(0, 3) = 99; // belongs to the caller
    std::filesystem::resize_file(folder.file("a.ztp"), 300);
    RecordedReports reports;
    const SO<NBX::Image> again = pyramid->overview(0)->getImage(0, 0, 4, 4);
    ASSERT_TRUE(again);
    EXPECT_EQ(10, *again->pixelComponentsU8(0, 3));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_EQ(std::vector<int>(6, -1), row(pyramid)) << "the other tile was not read";
    EXPECT_EQ(1U, reports.size()) << reports;
}

TEST_F(TexturePyramidTest, TilesThatCannotBeReadAreTriedAgain) {
    const std::vector<std::uint8_t> whole = PyramidFile().encode();
    const SO<TexturePyramid> pyramid = load(whole);
    const std::string path = folder.file("a.ztp");
    std::filesystem::resize_file(path, 300);
    RecordedReports reports;
    EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 6, 4));
    std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
        .write(reinterpret_cast<const char *>(whole.data()), static_cast<std::streamsize>(whole.size()));
    EXPECT_EQ(usual, row(pyramid));
}

TEST_F(TexturePyramidTest, LevelsKeepTheirTilesApart) {
    PyramidFile file;
    std::vector<std::uint8_t> bytes = file.encode();
    file.tiles = {PyramidFile::tile(30), PyramidFile::tile(40)};
    const std::vector<std::uint8_t> other = file.encode();
    // The second level stands in a copy of the file behind the first, so that its positions move.
    bytes.insert(bytes.begin() + 264, 8, 0);
    const std::size_t second = bytes.size();
    bytes.insert(bytes.end(), other.begin() + PyramidFile::level, other.end());
    putAt<std::uint32_t>(bytes, 36, 2);
    putAt<std::uint64_t>(bytes, 256, PyramidFile::level + 8);
    putAt<std::uint64_t>(bytes, 264, second);
    for (std::size_t i = 0; i < 2; ++i) {
        const std::size_t entry = PyramidFile::table + 8 * i;
        putAt(bytes, entry + 8, getAt<std::uint64_t>(bytes, entry + 8) + 8);
        putAt(bytes, second + 256 + 8 * i, getAt<std::uint64_t>(other, entry) - PyramidFile::level + second);
    }
    const SO<TexturePyramid> pyramid = load(bytes);
    ASSERT_TRUE(pyramid);
    for (int turn = 0; turn < 2; ++turn)
        for (int level = 0; level < 2; ++level)
            for (int tile = 0; tile < 2; ++tile) {
                const SO<NBX::Image> image =
                    pyramid->overview(static_cast<unsigned>(level))->getImage(4 * tile, 0, 2, 2);
                ASSERT_TRUE(image) << turn << level << tile;
                EXPECT_EQ(20 * level + 10 * tile + 10, *image->pixelComponentsU8(0, 0)) << turn;
            }
}

TEST_F(TexturePyramidTest, WhatIsLeftOfAFileThatShrinksHasNoHoles) {
    const std::vector<std::uint8_t> bytes = PyramidFile().encode();
    const SO<TexturePyramid> pyramid = load(bytes);
    std::filesystem::resize_file(folder.file("a.ztp"), bytes.size() - 1);
    RecordedReports reports;
    for (int time = 0; time < 2; ++time) {
        EXPECT_TRUE(pyramid->overview(0)->getImage(0, 0, 4, 4)) << "the first tile";
        EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 6, 4)) << "both";
        EXPECT_FALSE(pyramid->overview(0)->getImage(4, 0, 2, 4)) << "the last one";
    }
    EXPECT_EQ(1U, reports.size()) << reports;
}

TEST_F(TexturePyramidTest, WithAKeyHeadersAreScrambledAndTilesPlain) {
    const std::vector<std::uint8_t> plain = PyramidFile().encode();
    std::vector<std::uint8_t> scrambled = plain;
    constexpr std::uint64_t key = 0x0123456789ABCDEF;
    for (std::size_t start : {std::size_t(0), PyramidFile::level})
        for (std::size_t i = start; i < start + 256; i += 8)
            putAt(scrambled, i, getAt<std::uint64_t>(scrambled, i) ^ key);
    EXPECT_FALSE(load(scrambled));
    CompressedTexture::setEncryptionKey(key);
    EXPECT_EQ(key, CompressedTexture::getEncryptionKey());
    EXPECT_FALSE(load(plain));
    const SO<TexturePyramid> pyramid = load(scrambled);
    ASSERT_TRUE(pyramid);
    EXPECT_EQ(usual, row(pyramid));
}

TEST_F(TexturePyramidTest, WhatIsNoFileGivesNull) {
    EXPECT_FALSE(CompressedTexture::load(folder.wide("none.ztp")));
    EXPECT_FALSE(CompressedTexture::load(folder.wide("")));
    EXPECT_FALSE(CompressedTexture::load(L""));
    EXPECT_FALSE(load(std::vector<std::uint8_t>()));
}

TEST_F(TexturePyramidTest, TheConstructorSaysWhy) {
    folder.write("text", {1, 2, 3});
    try {
        const SO<TexturePyramid> pyramid(new TexturePyramid(folder.wide("text")));
        ADD_FAILURE();
    } catch (const NBX::IOError & failure) {
        EXPECT_EQ(L"wrong format", failure.message());
        EXPECT_EQ(folder.wide("text"), failure.detail());
    }
    EXPECT_THROW(TexturePyramid(folder.wide("none")), NBX::FileNotFoundException);
}

TEST_F(TexturePyramidTest, StoresItsName) {
    const SO<TexturePyramid> pyramid = load(PyramidFile());
    const SO<TexturePyramid> read = roundTrip(pyramid);
    ASSERT_TRUE(read);
    EXPECT_EQ(folder.wide("a.ztp"), read->fileName());
    EXPECT_EQ(usual, row(read));
}

class StoredPyramidTest : public TexturePyramidTest {
protected:
    StoredPyramidTest() : before(std::filesystem::current_path()) {
        const SO<TexturePyramid> pyramid = load(PyramidFile());
        stored = NBX::ObjectStreamWriter::write(*pyramid, true);
        std::filesystem::create_directory(folder.file("moved"));
        std::filesystem::rename(folder.file("a.ztp"), folder.file("moved/a.ztp"));
    }
    ~StoredPyramidTest() override {
        std::filesystem::current_path(before);
        ExternalLinkSolver::setPickFileCallback(nullptr);
        ExternalLinkSolver::resetModified();
    }

    SO<TexturePyramid> read() const {
        return dynamic_cast<TexturePyramid *>(
            NBX::ObjectStreamReader(stored.data(), stored.size()).read().get());
    }

    std::filesystem::path before;
    std::vector<std::uint8_t> stored;
};

TEST_F(StoredPyramidTest, AMissingFileIsFoundInTheWorkingDirectory) {
    std::filesystem::current_path(folder.file("moved"));
    const SO<TexturePyramid> pyramid = read();
    ASSERT_TRUE(pyramid);
    EXPECT_EQ(folder.wide("moved/a.ztp"), pyramid->fileName());
    EXPECT_EQ(usual, row(pyramid));
}

std::wstring s_proposed, s_picked;

bool pick(LinkType type, std::wstring & name) {
    EXPECT_EQ(0, type);
    s_proposed = name;
    if (s_picked.empty()) return false;
    name = s_picked;
    return true;
}

TEST_F(StoredPyramidTest, AMissingFileIsAskedFor) {
    ExternalLinkSolver::setPickFileCallback(pick);
    s_picked = folder.wide("moved/a.ztp");
    const SO<TexturePyramid> pyramid = read();
    ASSERT_TRUE(pyramid);
    EXPECT_EQ(folder.wide("a.ztp"), s_proposed);
    EXPECT_EQ(usual, row(pyramid));
    EXPECT_TRUE(ExternalLinkSolver::modified());
}

TEST_F(StoredPyramidTest, WithoutAnAnswerThereAreNoLevels) {
    ExternalLinkSolver::setPickFileCallback(pick);
    s_picked.clear();
    const SO<TexturePyramid> pyramid = read();
    ASSERT_TRUE(pyramid);
    EXPECT_EQ(L"", pyramid->fileName());
    EXPECT_EQ(0U, pyramid->overviews());
    EXPECT_EQ(0.0, pyramid->maxX());
    EXPECT_FALSE(pyramid->getGeoImage(100.0, 200.0, 160.0, 212.0, 8, 8));
}

/// Gives one attribute, a file name.
class NameStream : public NBX::ObjectStreamReader {
public:
    explicit NameStream(std::wstring name) : ObjectStreamReader(nullptr, 0), name_(std::move(name)) {}
    bool isReading() const override { return true; }
    void enterObject() override {}
    void beginSuperclass(const char *) override {}
    void endSuperclass(const char *) override {}
    bool attribute(const char * name, std::wstring & value) override {
        if (std::string("filename") != name) return false;
        value = name_;
        return true;
    }

private:
    std::wstring name_;
};

TEST_F(StoredPyramidTest, ARelativeNameBecomesAbsolute) {
    std::filesystem::current_path(folder.file(""));
    const SO<TexturePyramid> pyramid(new TexturePyramid(folder.wide("moved/a.ztp")));
    NameStream stream(L"moved/../moved/a.ztp");
    pyramid->serialize(stream);
    EXPECT_EQ(folder.wide("moved/a.ztp"), pyramid->fileName());
    EXPECT_EQ(usual, row(pyramid));
}

TEST_F(StoredPyramidTest, AMissingNameIsNoPattern) {
    std::filesystem::current_path(folder.file("moved"));
    const SO<TexturePyramid> pyramid(new TexturePyramid(folder.wide("moved/a.ztp")));
    NameStream stream(folder.wide("*.ztp"));
    pyramid->serialize(stream);
    EXPECT_EQ(L"", pyramid->fileName());
    EXPECT_EQ(0U, pyramid->overviews());
}

TEST_F(StoredPyramidTest, ABadFileThrows) {
    const SO<TexturePyramid> pyramid(new TexturePyramid(folder.wide("moved/a.ztp")));
    folder.write("bad.ztp", {1, 2, 3});
    NameStream stream(folder.wide("bad.ztp"));
    try {
        pyramid->serialize(stream);
        ADD_FAILURE();
    } catch (const NBX::IOError & failure) {
        EXPECT_EQ(L"wrong format", failure.message());
        EXPECT_EQ(folder.wide("bad.ztp"), failure.detail());
    }
    EXPECT_EQ(0U, pyramid->overviews());
}

TEST_F(TexturePyramidTest, LevelsAreNotStored) {
    const SO<TexturePyramidTiledGeoImage> level = load(PyramidFile())->level(0);
    RecordedReports reports;
    NameStream stream(L"");
    level->serialize(stream);
    EXPECT_EQ(1U, reports.count(0, L"false",
                                L"TexturePyramidTiledGeoImage cannot be serialized; serialize the parent "
                                L"TexturePyramid instead!"));
}

TEST_F(TexturePyramidTest, TheObjectLoaderKnowsTheFormat) {
    folder.write("a.ztp", PyramidFile().encode());
    const SO<NBX::SharedObj> object =
        NBX::ObjectLoader::readFile(folder.file("a.ztp"), TexturePyramid::ClassNameNBX(), false);
    const SO<TexturePyramid> pyramid = NBX::soCast<TexturePyramid>(object);
    ASSERT_TRUE(pyramid);
    EXPECT_EQ(usual, row(pyramid));
    const SO<TexturePyramidReader> reader(new TexturePyramidReader());
    EXPECT_EQ("ZMT terrain texture", reader->objectFormatName());
    EXPECT_TRUE(reader->canProduce(ZMT::RASTER::TiledGeoImagePyramid::ClassNameNBX()));
    RecordedReports reports;
    EXPECT_FALSE(reader->read(nullptr));
    EXPECT_EQ(1U, reports.count(0, L"resource", L"no resource"));
    const SO<NBX::DataResource> nameless(new NBX::MemoryDataResource(4));
    EXPECT_FALSE(reader->read(nameless.get()));
}

/// Reads all that a file offers.
void readAll(const SO<TexturePyramid> & pyramid) {
    for (unsigned i = 0; i < pyramid->overviews(); ++i) {
        pyramid->overview(i)->getImage(-1, -1, 9, 7);
        pyramid->overview(i)->getGeoImage(100.0, 200.0, 160.0, 212.0, 3, 3);
    }
    pyramid->getGeoImage(100.0, 200.0, 160.0, 212.0, 8, 8);
}

TEST_F(TexturePyramidTest, EveryTruncatedLength) {
    RecordedReports reports;
    for (const std::uint32_t version : {1U, 3U}) {
        PyramidFile file;
        file.version = version;
        const std::vector<std::uint8_t> whole = file.encode();
        for (std::size_t length = 0; length < whole.size(); ++length) {
            const SO<TexturePyramid> pyramid =
                load({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)});
            EXPECT_EQ(length >= PyramidFile::table + 2 * (version >= 2 ? 12 : 8), static_cast<bool>(pyramid))
                << length;
            if (pyramid) readAll(pyramid);
        }
    }
}

TEST_F(TexturePyramidTest, AnyDamageIsSurvived) {
    RecordedReports reports;
    const unsigned seed = 20240611;
    std::mt19937 random(seed);
    SCOPED_TRACE(seed);
    std::vector<std::vector<std::uint8_t>> files;
    for (const std::uint32_t version : {1U, 2U, 3U}) {
        PyramidFile file;
        file.version = version;
        files.push_back(file.encode());
    }
    unsigned opened = 0;
    for (int i = 0; i < 10000; ++i) {
        std::vector<std::uint8_t> bytes = files[random() % files.size()];
        for (unsigned n = random() % 4 + 1; n > 0; --n) {
            // Most of the bytes are reserved: those that mean something are hit more often.
            const std::size_t starts[] = {32, 256, PyramidFile::level + 32, PyramidFile::table,
                                          random() % bytes.size()};
            const std::size_t at = std::min(bytes.size() - 1, starts[random() % 5] + random() % 48);
            const std::uint8_t values[] = {0, 1, 0x7F, 0x80, 0xFF, static_cast<std::uint8_t>(random())};
            bytes[at] = values[random() % 6];
        }
        if (const SO<TexturePyramid> pyramid = load(bytes)) {
            ++opened;
            readAll(pyramid);
        }
        reports.clear();
    }
    EXPECT_GT(opened, 1000U);
    EXPECT_LT(opened, 9000U);
}

} // namespace
