// How images become streaming textures: formats, colours, several images as one.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>

#include <gtest/gtest.h>

#include <nbx/image/image.h>
#include <nbx/math/color.h>

#include "core/terrain/texture/streaming/streamingtexturefile.h"
#include "smallground.h"
#include "support/imagecompare.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

namespace fs = std::filesystem;

using StreamingTextureFile::Bytes;
using StreamingTextureFile::Tile;

constexpr unsigned s_side = 40;

class StreamingTextures : public ::testing::Test {
protected:
    using Words = std::vector<std::string>;
    struct Rgba {
        int red, green, blue, alpha;
        bool operator==(const Rgba & other) const {
            return red == other.red && green == other.green && blue == other.blue && alpha == other.alpha;
        }
        friend std::ostream & operator<<(std::ostream & out, const Rgba & color) {
            return out << color.red << ' ' << color.green << ' ' << color.blue << ' ' << color.alpha;
        }
    };

    void SetUp() override {
        SmallGeoTiff flat{s_side, s_side};
        flat.heights.assign(std::size_t(s_side) * s_side, 100.0F);
        terrain_ = folder.out("ground.ztt");
        const RunResult run = zmt(
            {"build", "terrain", folder.write("flat.tif", flat.encode()), terrain_, "--lighting", "none"});
        ASSERT_EQ(0, run.status) << run.errors;
    }
    RunResult zmt(const Words & words) const { return runProcess(ZMT_EXECUTABLE, words, folder); }
    RunResult build(const Words & images, const Words & options = {}) const {
        Words words = {"build", "texture"};
        words.insert(words.end(), images.begin(), images.end());
        words.insert(words.end(), {folder.out("t.zts"), "--terrain", terrain_});
        words.insert(words.end(), options.begin(), options.end());
        return zmt(words);
    }
    /// The tile of the root; tiles are large enough for all of the image.
    Tile built(const Words & images, const Words & options = {}) const {
        const RunResult run = build(images, options);
        EXPECT_EQ(0, run.status) << run.errors;
        const std::string file = readWhole(folder.out("t.zts"));
        return StreamingTextureFile::Decoder(Bytes(file.begin(), file.end())).root();
    }
    /// Of an RGBA tile at a place in cells of the ground, from its south-western corner on.
    static Rgba at(const Tile & tile, double column, double row) {
        const auto pixel = [&](double cells, double origin, double first, double last, unsigned size) {
            return unsigned(std::lround((origin + cells * s_cell - first) / (last - first) * (size - 1)));
        };
        const unsigned x = pixel(column, s_west, tile.image[0], tile.image[2], tile.width);
        const unsigned y = pixel(row, s_north - s_side * s_cell, tile.image[1], tile.image[3], tile.height);
        if (x >= tile.width || y >= tile.height) return {0, 0, 0, -1};
        const std::uint8_t * pixels = tile.pixels.data() + 4 * (std::size_t(y) * tile.width + x);
        return {pixels[0], pixels[1], pixels[2], pixels[3]};
    }
    /// An image of one colour over some cells.
    std::string colors(const std::string & name, unsigned column, unsigned row, unsigned width,
                       unsigned height, std::uint8_t red, std::uint8_t green, std::uint8_t blue) const {
        SmallGeoTiff image{width, height, SmallGeoTiff::Pixels::Colors};
        for (unsigned i = 0; i < width * height; ++i)
            image.colors.insert(image.colors.end(), {red, green, blue});
        image.west = s_west + column * s_cell;
        image.north = s_north - (s_side - row - height) * s_cell;
        return folder.write(name, image.encode());
    }
    /// Heights that rise to the east, some of which are missing.
    std::string heights(const std::string & name) const {
        SmallGeoTiff image{s_side, s_side};
        for (unsigned i = 0; i < s_side * s_side; ++i)
            image.heights.push_back(i % s_side < 4 ? -9999.0F : 1000.0F + 50.0F * float(i % s_side));
        image.noData = "-9999";
        return folder.write(name, image.encode());
    }

    RunFolder folder;
    std::string terrain_;
};

TEST_F(StreamingTextures, FormatsAreStoredAsTheyAreNamed) {
    const std::string image = colors("image.tif", 0, 0, s_side, s_side, 200, 100, 50);
    const std::vector<std::pair<std::string, unsigned>> formats = {{"auto", 0}, {"rgba", 0}, {"grey", 7},
                                                                   {"dxt1", 9}, {"dxt3", 8}, {"dxt5", 8}};
    for (const auto & [name, number] : formats)
        EXPECT_EQ(number, built({image}, {"--format", name}).format) << name;
    EXPECT_EQ((Rgba{200, 100, 50, 255}), at(built({image}), 20, 20));
}

TEST_F(StreamingTextures, HeightsAreStretchedAndWhatIsMissingIsTransparent) {
    const std::string image = heights("heights.tif");
    const Tile tile = built({image});
    EXPECT_EQ(0U, tile.format);
    EXPECT_EQ(0, at(tile, 1.5, 20.5).alpha);
    const Rgba low = at(tile, 5.5, 20.5), middle = at(tile, 22.5, 20.5), high = at(tile, 38.5, 20.5);
    EXPECT_EQ(255, middle.alpha);
    EXPECT_LT(low.red, 20);
    EXPECT_NEAR(128, middle.red, 12);
    EXPECT_GT(high.red, 235);

    const Tile darker = built({image}, {"--stretch", "1000,5000"});
    EXPECT_NEAR(255.0 * 22.0 * 50.0 / 4000.0, at(darker, 22.5, 20.5).red, 1.0);
    const Tile brighter = built({image}, {"--stretch", "1000,5000", "--gamma", "2"});
    EXPECT_NEAR(255.0 * std::sqrt(22.0 * 50.0 / 4000.0), at(brighter, 22.5, 20.5).red, 1.0);
}

TEST_F(StreamingTextures, BandsAreChosen) {
    const std::string image = colors("image.tif", 0, 0, s_side, s_side, 200, 100, 50);
    EXPECT_EQ((Rgba{50, 200, 100, 255}), at(built({image}, {"--bands", "3,1,2"}), 20, 20));
    const Tile grey = built({image}, {"--bands", "2"});
    EXPECT_EQ(7U, grey.format);
    EXPECT_EQ(100, grey.pixels.at(grey.pixels.size() / 2));
    const RunResult wrong = build({image}, {"--bands", "4"});
    EXPECT_EQ(1, wrong.status);
    EXPECT_EQ(1U, wrong.errorLines().size()) << wrong.errors;
    EXPECT_EQ(2, build({image}, {"--bands", "1", "--bands", "2"}).status);
}

TEST_F(StreamingTextures, GreyDoesNotLoseAlphaInSilence) {
    const std::string image = heights("heights.tif");
    const RunResult run = build({image}, {"--format", "grey"});
    EXPECT_EQ(0, run.status);
    EXPECT_NE(std::string::npos,
              run.errors.find("heights.tif: has pixels without data or with alpha, which grey cannot store; "
                              "rgba is taken instead"))
        << run.errors;
    EXPECT_EQ(0U, built({image}, {"--format", "grey"}).format);
    const RunResult blocks = build({image}, {"--format", "dxt1"});
    EXPECT_TRUE(blocks.errorLines().empty()) << blocks.errors;
    EXPECT_EQ(9U, built({image}, {"--format", "dxt1"}).format);
    const std::string full = colors("full.tif", 0, 0, s_side, s_side, 90, 90, 90);
    const std::string part = colors("part.tif", 5, 5, 20, 20, 20, 20, 20);
    for (const Words & images : {Words{full}, Words{full, part}}) {
        const RunResult quiet = build(images, {"--format", "grey"});
        EXPECT_TRUE(quiet.errorLines().empty()) << quiet.errors;
        EXPECT_EQ(7U, built(images, {"--format", "grey"}).format);
    }
    const std::string apart = colors("apart.tif", 30, 30, 5, 5, 20, 20, 20);
    const RunResult free = build({part, apart}, {"--format", "grey"});
    EXPECT_NE(std::string::npos, free.errors.find("may leave ground free")) << free.errors;
}

TEST_F(StreamingTextures, LaterImagesLieAboveEarlierOnes) {
    const std::string all = colors("all.tif", 0, 0, s_side, s_side, 10, 20, 30);
    const std::string west = colors("west.tif", 2, 2, 20, 30, 200, 100, 50);
    const std::string north = colors("north.tif", 12, 22, 20, 16, 50, 250, 150);
    const Tile tile = built({all, west, north});
    EXPECT_EQ((Rgba{10, 20, 30, 255}), at(tile, 35.5, 5.5));
    EXPECT_EQ((Rgba{200, 100, 50, 255}), at(tile, 5.5, 25.5));
    EXPECT_EQ((Rgba{50, 250, 150, 255}), at(tile, 15.5, 25.5));
    EXPECT_EQ((Rgba{200, 100, 50, 255}), at(built({all, north, west}), 15.5, 25.5));
    // To the pixel.
    EXPECT_EQ((Rgba{10, 20, 30, 255}), at(tile, 1.5, 5.5));
    EXPECT_EQ((Rgba{200, 100, 50, 255}), at(tile, 2.5, 5.5));
    EXPECT_EQ((Rgba{200, 100, 50, 255}), at(tile, 21.5, 5.5));
    EXPECT_EQ((Rgba{10, 20, 30, 255}), at(tile, 22.5, 5.5));
}

TEST_F(StreamingTextures, WhatIsTransparentShowsTheImageBelow) {
    const std::string below = colors("below.tif", 0, 0, s_side, s_side, 200, 100, 50);
    // Each image has a stretch of its own.
    const Tile tile =
        built({below, heights("heights.tif")}, {"--stretch", "0,255", "--stretch", "1000,5000"});
    EXPECT_EQ((Rgba{200, 100, 50, 255}), at(tile, 1.5, 20.5));
    EXPECT_EQ((Rgba{70, 70, 70, 255}), at(tile, 22.5, 20.5));
}

TEST_F(StreamingTextures, ImagesOfOtherSystemsAndNowhereElseAreJoined) {
    const std::string west = colors("west.tif", 0, 0, 10, s_side, 200, 100, 50);
    SmallGeoTiff degrees{30, 30, SmallGeoTiff::Pixels::Colors};
    degrees.colors.assign(std::size_t(30) * 30 * 3, 80);
    degrees.system = 4326;
    degrees.isInDegrees = true;
    degrees.west = 87.006;
    degrees.north = 28.0245;
    degrees.cell = 0.0003;
    const Tile tile = built({west, folder.write("degrees.tif", degrees.encode())});
    EXPECT_EQ((Rgba{200, 100, 50, 255}), at(tile, 4.5, 20.5));
    EXPECT_EQ((Rgba{80, 80, 80, 255}), at(tile, 28.5, 20.5));
    EXPECT_EQ(0, at(tile, 13.5, 20.5).alpha);

    const std::string elsewhere = colors("far.tif", 500, 0, 10, 10, 1, 2, 3);
    const RunResult run = build({west, elsewhere});
    EXPECT_EQ(1, run.status);
    ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
    EXPECT_NE(std::string::npos, run.errors.find("far.tif: the image lies elsewhere")) << run.errors;
    EXPECT_EQ(2, build(Words(65, west)).status);
}

TEST_F(StreamingTextures, JoinedImagesAreTheSameForAnyNumberOfThreads) {
    const std::string all = colors("all.tif", 0, 0, s_side, s_side, 10, 20, 30);
    const std::string part = colors("part.tif", 3, 5, 20, 30, 200, 100, 50);
    const auto bytes = [&](const std::string & threads) {
        EXPECT_EQ(0, build({all, part}, {"--tile", "16", "--threads", threads}).status);
        return readWhole(folder.out("t.zts"));
    };
    const std::string one = bytes("1");
    EXPECT_GT(one.size(), 1000U);
    EXPECT_TRUE(one == bytes("3"));
}

/// A large image without overviews, of which each coarse tile would read all pixels anew.
TEST_F(StreamingTextures, CoarseLevelsOfLargeImagesAreMadeOnce) {
    colors("image.tif", 0, 0, s_side, s_side, 200, 100, 50);
    std::string vrt = "<VRTDataset rasterXSize=\"8200\" rasterYSize=\"8200\"><SRS>EPSG:32645</SRS>"
                      "<GeoTransform>500000,0.15609756,0,3100000,0,-0.15609756</GeoTransform>";
    for (const char * band : {"1", "2", "3"})
        vrt += std::string("<VRTRasterBand dataType=\"Byte\" band=\"") + band +
               "\"><SimpleSource><SourceFilename relativeToVRT=\"1\">image.tif</SourceFilename>"
               "<SourceBand>" +
               band +
               "</SourceBand><SrcRect xOff=\"0\" yOff=\"0\" xSize=\"40\" ySize=\"40\"/><DstRect "
               "xOff=\"0\" yOff=\"0\" xSize=\"8200\" ySize=\"8200\"/></SimpleSource></VRTRasterBand>";
    const std::string large = folder.write("large.vrt", vrt + "</VRTDataset>");
    const auto filesIn = [&](const std::string & cache, const std::string & option) {
        // A tree of one tile.
        const RunResult run = runProcess(
            "/bin/sh",
            {"-c", "XDG_CACHE_HOME='" + folder.out(cache) + "' '" ZMT_EXECUTABLE "' build texture '" + large +
                       "' '" + folder.out("t.zts") + "' --terrain '" + terrain_ + "' --tile 64 " + option},
            folder);
        EXPECT_EQ(0, run.status) << run.errors;
        const fs::path made = fs::path(folder.out(cache)) / "zmt";
        return fs::exists(made) ? std::distance(fs::directory_iterator(made), fs::directory_iterator()) : 0;
    };
    EXPECT_EQ(1, filesIn("kept", ""));
    EXPECT_EQ(0, filesIn("none", "--no-cache"));
}

} // namespace
