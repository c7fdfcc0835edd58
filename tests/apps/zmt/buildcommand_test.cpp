#include <algorithm>
#include <filesystem>
#include <random>

#include <gtest/gtest.h>

#include <nbx/image/image.h>
#include <nbx/object/stringutils.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramid.h>
#include <zmt/util/compressedtexture/texturepyramidtiledgeoimage.h>

#include "datafiles.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

using ZMT::UTIL::CompressedTexture;
using ZMT::UTIL::TexturePyramid;

/// Noise, which takes its time to deflate, with a black corner in the south-west.
SmallGeoTiff noise(unsigned width, unsigned height) {
    SmallGeoTiff tiff{width, height};
    tiff.pixels = SmallGeoTiff::Pixels::Colors;
    tiff.colors.resize(3UL * width * height);
    std::mt19937 random(3);
    for (std::uint8_t & value : tiff.colors)
        value = static_cast<std::uint8_t>(1 + random() % 250);
    for (unsigned y = height - height / 4; y < height; ++y)
        std::fill_n(tiff.colors.begin() + 3L * y * width, 3 * (width / 4), std::uint8_t(0));
    return tiff;
}

class BuildPyramidTest : public testing::Test {
protected:
    RunResult build(const std::string & image, const std::vector<std::string> & more = {},
                    const RunLimits & limits = {}) {
        std::vector<std::string> arguments = {"build", "pyramid", image, folder.out("a.ztp")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runProcess(ZMT_EXECUTABLE, arguments, folder, limits);
    }

    NBX::SO<TexturePyramid> result() const {
        return CompressedTexture::load(NBX::StringUtils::Utf8String2WString(folder.out("a.ztp")));
    }

    void expectFailure(const RunResult & run, int status, const std::string & word) {
        EXPECT_EQ(status, run.status) << run.errors;
        EXPECT_NE(std::string::npos, run.errors.find(word)) << run.errors;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_EQ(std::vector<std::string>(), folder.results());
    }

    RunFolder folder;
};

TEST_F(BuildPyramidTest, WritesAPyramidAndTellsWhatItHolds) {
    const RunResult run = build(s_everestImage, {"--deflate"});
    ASSERT_EQ(0, run.status) << run.errors;
    EXPECT_EQ("", run.errors);
    EXPECT_EQ((std::vector<std::string>{"a.prj", "a.ztp"}), folder.results());
    const auto pyramid = result();
    ASSERT_TRUE(pyramid);
    EXPECT_GT(pyramid->overviews(), 1U);
    const RunResult info = runProcess(ZMT_EXECUTABLE, {"info", folder.out("a.ztp")}, folder);
    EXPECT_EQ(0, info.status) << info.errors;
    for (const char * word :
         {"texture pyramid", "deflated", "WGS 84 / UTM zone 45N", "level 0", "level 1", "x:  ", "pixels"})
        EXPECT_NE(std::string::npos, info.output.find(word)) << word << "\n" << info.output;
}

TEST_F(BuildPyramidTest, PlainTilesInTheWantedFormat) {
    const std::string image = folder.write("image.tif", noise(300, 200).encode());
    ASSERT_EQ(0, build(image, {"--format", "dxt5"}).status);
    const auto pyramid = result();
    ASSERT_TRUE(pyramid);
    EXPECT_EQ(CompressedTexture::PF_DXT5, pyramid->level(0)->pixelFormat());
    EXPECT_EQ(0U, pyramid->level(0)->header().compression);
    EXPECT_EQ(2U * 65536U, pyramid->level(0)->storedBytes());
}

TEST_F(BuildPyramidTest, TheMaskColourBecomesTransparent) {
    const std::string image = folder.write("image.tif", noise(300, 200).encode());
    for (const char * colour : {"000000", "#000000"}) {
        ASSERT_EQ(0, build(image, {"--mask", colour}).status);
        const auto pyramid = result();
        ASSERT_TRUE(pyramid);
        EXPECT_EQ(CompressedTexture::PF_RGBA8, pyramid->level(0)->pixelFormat());
        const auto pixels = pyramid->overview(0)->getImage(0, 0, 300, 200);
        EXPECT_EQ(0, pixels->pixelComponentsU8(10, 10)[3]);
        EXPECT_EQ(255, pixels->pixelComponentsU8(10, 100)[3]);
    }
}

TEST_F(BuildPyramidTest, WrongArguments) {
    const std::string image = folder.write("image.tif", noise(8, 8).encode());
    expectFailure(build(image, {"--format", "RGB9"}), 2, "LuminanceAlpha16");
    expectFailure(build(image, {"--mask", "blue"}), 2, "000000");
    expectFailure(build(folder.in("none.tif")), 1, "no such file");
    expectFailure(build(folder.write("text.tif", "no image")), 1, "no raster file");
    expectFailure(runProcess(ZMT_EXECUTABLE, {"build"}, folder), 2, "--help");
    expectFailure(runProcess(ZMT_EXECUTABLE, {"build", "pyramid", image}, folder), 2, "OUT");
    expectFailure(runProcess(ZMT_EXECUTABLE, {"build", "pyramid", image, folder.out("no/a.ztp")}, folder), 1,
                  "folder");
}

TEST_F(BuildPyramidTest, AnImageWithoutASystemLeavesNoneBesideItsPyramid) {
    SmallGeoTiff image = noise(300, 200);
    ASSERT_EQ(0, build(folder.write("image.tif", image.encode())).status);
    EXPECT_EQ((std::vector<std::string>{"a.prj", "a.ztp"}), folder.results());
    image.isPlaced = false;
    ASSERT_EQ(0, build(folder.write("image.tif", image.encode())).status);
    EXPECT_EQ(std::vector<std::string>{"a.ztp"}, folder.results());
    const RunResult info = runProcess(ZMT_EXECUTABLE, {"info", folder.out("a.ztp")}, folder);
    EXPECT_NE(std::string::npos, info.output.find("system:     none")) << info.output;
}

TEST_F(BuildPyramidTest, AFailureKeepsAPyramidWithItsSystem) {
    ASSERT_EQ(0, build(folder.write("image.tif", noise(300, 200).encode())).status);
    const std::string pyramid = readWhole(folder.out("a.ztp")), system = readWhole(folder.out("a.prj"));
    SmallGeoTiff other = noise(900, 800);
    other.system = 32644;
    const std::string image = folder.write("other.tif", other.encode());
    std::string cut = other.encode();
    cut.resize(cut.size() / 2);
    EXPECT_EQ(1, build(folder.write("cut.tif", cut)).status);
    RunLimits full;
    full.largestFile = 100000;
    EXPECT_EQ(1, build(image, {}, full).status);
    EXPECT_EQ((std::vector<std::string>{"a.prj", "a.ztp"}), folder.results());
    EXPECT_TRUE(pyramid == readWhole(folder.out("a.ztp")));
    EXPECT_EQ(system, readWhole(folder.out("a.prj")));
}

TEST_F(BuildPyramidTest, TheSystemHasItsOwnFile) {
    const std::string image = folder.write("image.tif", noise(300, 200).encode());
    expectFailure(runProcess(ZMT_EXECUTABLE, {"build", "pyramid", image, folder.out("a.prj")}, folder), 2,
                  ".prj");
    const std::string disguised = folder.write("b.prj", noise(300, 200).encode());
    expectFailure(runProcess(ZMT_EXECUTABLE, {"build", "pyramid", disguised, folder.in("b.ztp")}, folder), 2,
                  "IMAGE");
}

TEST_F(BuildPyramidTest, NumbersBecomeColours) {
    SmallGeoTiff numbers{200, 150};
    for (unsigned i = 0; i < 200 * 150; ++i)
        numbers.heights.push_back(i % 200 == 0 ? -1.0F : 1000.0F + static_cast<float>(i % 200));
    numbers.noData = "-1";
    const std::string image = folder.write("numbers.tif", numbers.encode());
    ASSERT_EQ(0, build(image).status);
    EXPECT_EQ(CompressedTexture::PF_LuminanceAlpha8, result()->level(0)->pixelFormat());
    const auto pixels = result()->overview(0)->getImage(0, 0, 200, 150);
    EXPECT_EQ(0, pixels->pixelComponentsU8(0, 9)[1]) << "no data";
    EXPECT_EQ(0, pixels->pixelComponentsU8(3, 9)[0]);
    EXPECT_NEAR(127, pixels->pixelComponentsU8(100, 9)[0], 3);
    EXPECT_EQ(255, pixels->pixelComponentsU8(197, 9)[0]);
    ASSERT_EQ(0, build(image, {"--stretch", "1000,1255"}).status);
    EXPECT_EQ(100, result()->overview(0)->getImage(100, 9, 1, 1)->pixelComponentsU8(0, 0)[0]);
    std::filesystem::remove(folder.out("a.ztp"));
    std::filesystem::remove(folder.out("a.prj"));
    expectFailure(build(image, {"--bands", "1,2,3"}), 1, "has no band 2, only 1");
    expectFailure(build(image, {"--stretch", "2,1"}), 2, "MIN,MAX");
    expectFailure(build(image, {"--gamma", "1", "--gamma", "2"}), 2, "--gamma");
}

TEST_F(BuildPyramidTest, BandsAreChosen) {
    const std::string image = folder.write("image.tif", noise(300, 200).encode());
    ASSERT_EQ(0, build(image).status);
    const auto usual = result()->overview(0)->getImage(150, 150, 1, 1);
    ASSERT_EQ(0, build(image, {"--bands", "3,1,2"}).status);
    const auto turned = result()->overview(0)->getImage(150, 150, 1, 1);
    EXPECT_EQ(usual->pixelComponentsU8(0, 0)[2], turned->pixelComponentsU8(0, 0)[0]);
    EXPECT_EQ(usual->pixelComponentsU8(0, 0)[0], turned->pixelComponentsU8(0, 0)[1]);
    EXPECT_EQ(usual->pixelComponentsU8(0, 0)[1], turned->pixelComponentsU8(0, 0)[2]);
}

TEST_F(BuildPyramidTest, AMaskNeedsAFormatWithAlpha) {
    const std::string image = folder.write("image.tif", noise(300, 200).encode());
    for (const auto & [format, better] :
         {std::pair("RGB8", "RGBA8"), std::pair("Luminance8", "LuminanceAlpha8"), std::pair("DXT1", "DXT1A")})
        expectFailure(build(image, {"--mask", "000000", "--format", format}), 2, better);
    ASSERT_EQ(0, build(image, {"--mask", "000000", "--format", "DXT5"}).status);
    EXPECT_EQ(CompressedTexture::PF_DXT5, result()->level(0)->pixelFormat());
}

TEST_F(BuildPyramidTest, WithoutDataAFormatWithAlphaIsTakenAndThatIsSaid) {
    SmallGeoTiff content = noise(300, 200);
    content.noData = "0";
    const std::string image = folder.write("image.tif", content.encode());
    const std::pair<const char *, CompressedTexture::PixelFormat> cases[] = {
        {"RGB8", CompressedTexture::PF_RGBA8},
        {"Luminance8", CompressedTexture::PF_LuminanceAlpha8},
        {"DXT1", CompressedTexture::PF_DXT1A},
    };
    for (const auto & [format, taken] : cases) {
        const RunResult run = build(image, {"--format", format});
        ASSERT_EQ(0, run.status) << run.errors;
        ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(std::string::npos,
                  run.errors.find(std::string(CompressedTexture::formatName(taken)) + " is taken instead"))
            << run.errors;
        EXPECT_EQ(taken, result()->level(0)->pixelFormat());
        const auto corner = result()->overview(0)->getImage(10, 10, 1, 1);
        EXPECT_EQ(0, corner->pixelComponentsU8(0, 0)[corner->numberOfLayers() - 1]) << format;
    }
    EXPECT_EQ("", build(image, {"--format", "RGBA8"}).errors);
    EXPECT_EQ("", build(folder.write("opaque.tif", noise(300, 200).encode()), {"--format", "RGB8"}).errors);
}

TEST_F(BuildPyramidTest, AnImageThatIsCutOff) {
    std::string bytes = noise(600, 600).encode();
    bytes.resize(bytes.size() / 2);
    const RunResult run = build(folder.write("image.tif", bytes));
    EXPECT_EQ(1, run.status);
    EXPECT_NE(std::string::npos, run.errors.find("damaged or cut off")) << run.errors;
    EXPECT_EQ(std::vector<std::string>(), folder.results());
}

TEST_F(BuildPyramidTest, AnInterruptLeavesNothing) {
    const std::string image = folder.write("image.tif", noise(4000, 3000).encode());
    RunLimits limits;
    limits.interruptWhenIn = folder.path() / "out";
    expectFailure(build(image, {"--deflate"}, limits), 1, "cancelled");
}

TEST_F(BuildPyramidTest, AKillLeavesNothing) {
    const std::string image = folder.write("image.tif", noise(4000, 3000).encode());
    RunLimits limits;
    limits.interruptWhenIn = folder.path() / "out";
    limits.signal = SIGKILL;
    EXPECT_EQ(1000 + SIGKILL, build(image, {"--deflate"}, limits).status);
    EXPECT_EQ(std::vector<std::string>(), folder.results());
    EXPECT_EQ(std::vector<std::string>{"image.tif"}, folder.inputs());
}

TEST_F(BuildPyramidTest, AFullDiskLeavesNothing) {
    const std::string image = folder.write("image.tif", noise(300, 200).encode());
    RunLimits limits;
    limits.largestFile = 100000;
    const RunResult run = build(image, {}, limits);
    EXPECT_EQ(1, run.status);
    EXPECT_NE(std::string::npos, run.errors.find("check the room on its disk")) << run.errors;
    EXPECT_EQ(std::vector<std::string>(), folder.results());
}

} // namespace
