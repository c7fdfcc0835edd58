#include "support/imagecompare.h"

#include <cstring>

#include <nbx/image/memoryimage.h>

namespace {

using NBX::Color;
using ImagePtr = NBX::SO<NBX::Image>;

std::string goldenPath(const std::string & name) {
    return ZMT_DATA_DIR "/../tests/golden/" + name + ".png";
}

ImagePtr makeImage(int width, int height, const Color & color) {
    ImagePtr image(new NBX::MemoryImage(width, height, NBX::LS_RGB));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image->setColor(x, y, color);
    return image;
}

TEST(ColorDifference, AgreesWithPublishedValues) {
    // L* of sRGB white is 100, of middle grey 119 it is 50.03.
    EXPECT_NEAR(100.0, colorDifference(Color::white, Color::black), 0.01);
    EXPECT_NEAR(50.03, colorDifference(Color(119.0 / 255.0), Color::black), 0.01);
    // Red is L*a*b* 53.24, 80.09, 67.20; green is 87.73, -86.18, 83.18.
    EXPECT_NEAR(std::hypot(53.24 - 87.73, 80.09 + 86.18, 67.20 - 83.18),
                colorDifference(Color::red, Color::green), 0.05);
}

TEST(ColorDifference, IsSymmetricAndNothingForEqualColors) {
    const Color a(0.1F, 0.5F, 0.7F), b(0.2F, 0.4F, 0.9F);
    EXPECT_EQ(0.0, colorDifference(a, a));
    EXPECT_EQ(colorDifference(a, b), colorDifference(b, a));
}

TEST(ImageCompare, EqualImagesDoNotDiffer) {
    const ImagePtr image = makeImage(5, 4, Color::gold);
    const ImageDifference difference = compareImages(*image, *image);
    EXPECT_TRUE(difference.isSameSize);
    EXPECT_EQ(0.0, difference.share);
    EXPECT_EQ(0.0, difference.largest);
}

TEST(ImageCompare, OnePixelOfTwentyIsFivePercent) {
    const ImagePtr expected = makeImage(5, 4, Color::gold);
    const ImagePtr actual = makeImage(5, 4, Color::gold);
    actual->setColor(2, 1, Color::blue);
    const ImageDifference difference = compareImages(*actual, *expected);
    EXPECT_NEAR(0.05, difference.share, 1e-12);
    EXPECT_EQ(Color::white, difference.picture->getColor(1, 1));
    EXPECT_LT(difference.picture->getColor(2, 1)[1], 0.5F);
}

TEST(ImageCompare, SmallDifferencesAreAllowed) {
    // One step of grey is about 0.4 units.
    const ImagePtr expected = makeImage(3, 3, Color(128.0 / 255.0));
    EXPECT_EQ(0.0, compareImages(*makeImage(3, 3, Color(130.0 / 255.0)), *expected).share);
    EXPECT_EQ(1.0, compareImages(*makeImage(3, 3, Color(140.0 / 255.0)), *expected).share);
}

TEST(ImageCompare, SizesMustAgree) {
    const ImageDifference difference =
        compareImages(*makeImage(3, 4, Color::red), *makeImage(4, 3, Color::red));
    EXPECT_FALSE(difference.isSameSize);
    EXPECT_FALSE(difference.picture);
}

/// A copy in which the pixels of a rectangle come from one pixel further left.
ImagePtr withShiftedPart(const NBX::Image & image, int x0, int y0, int width, int height) {
    ImagePtr result(new NBX::MemoryImage(image.width(), image.height(), NBX::LS_RGB));
    result->copy(&image);
    for (int y = y0; y < y0 + height; ++y)
        for (int x = x0; x < x0 + width; ++x)
            result->setColor(x, y, image.getColor(x - 1, y));
    return result;
}

TEST(ImageCompare, APatchMovedByOnePixelIsNoticed) {
    const ImagePtr golden = readPng(goldenPath("overview"));
    ASSERT_TRUE(golden);
    // A sixteenth of the picture, amidst the terrain.
    const ImagePtr shifted = withShiftedPart(*golden, golden->width() * 3 / 8, golden->height() * 3 / 8,
                                             golden->width() / 4, golden->height() / 4);
    EXPECT_GT(compareImages(*shifted, *golden).share, 0.01);
}

TEST(ImageCompare, AFailureKeepsThePictures) {
    const std::string folder = ::testing::TempDir();
    const ImagePtr golden = readPng(goldenPath("overview"));
    ASSERT_TRUE(golden);
    const std::string path = folder + "zmt_shifted.png";
    writePng(*withShiftedPart(*golden, 1, 0, golden->width() - 1, golden->height()), path);
    if (std::getenv("ZMT_UPDATE_GOLDEN")) GTEST_SKIP() << "golden pictures are being replaced";
    const std::string message = compareWithGolden(path, "overview");
    std::remove(path.c_str());
    ASSERT_NE(std::string::npos, message.find("% of the pixels differ"));
    const std::string kept = message.substr(message.find("see ") + 4);
    for (const char * kind : {"actual", "expected", "difference"}) {
        const std::string picture = kept + "/overview." + kind + ".png";
        EXPECT_TRUE(readPng(picture)) << picture;
        std::remove(picture.c_str());
    }
}

/// A model of one grey, `width` pixels wide, in front of magenta.
ImagePtr greyModel(int grey, int width) {
    ImagePtr image = new NBX::MemoryImage(64, 32, NBX::LS_RGB);
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 64; ++x)
            image->setColor(x, y,
                            x < width ? NBX::Color(grey / 255.0, grey / 255.0, grey / 255.0)
                                      : NBX::Color(1.0, 0.0, 1.0));
    return image;
}

const NBX::Color s_magenta(1.0F, 0.0F, 1.0F);

TEST(ImageCompare, ModelsOfFlatColourDifferByTheirMeans) {
    const ModelLikeness same = compareModels(*greyModel(100, 64), *greyModel(100, 64), s_magenta);
    EXPECT_DOUBLE_EQ(same.similarity, 1.0);
    EXPECT_EQ(same.silhouettes, 0.0);
    EXPECT_EQ(same.shown, 64U * 32U);
    const ModelLikeness brighter = compareModels(*greyModel(150, 64), *greyModel(100, 64), s_magenta);
    const double c1 = 2.55 * 2.55;
    EXPECT_NEAR(brighter.similarity, (2.0 * 150 * 100 + c1) / (150.0 * 150 + 100.0 * 100 + c1), 1e-4);
}

TEST(ImageCompare, SilhouettesAreWhereOnlyOnePictureShowsTheModel) {
    const ModelLikeness narrower = compareModels(*greyModel(250, 16), *greyModel(250, 32), s_magenta);
    EXPECT_DOUBLE_EQ(narrower.silhouettes, 0.25);
    EXPECT_EQ(narrower.shown, 32U * 32U);
    EXPECT_LT(narrower.similarity, 0.8);
    EXPECT_EQ(compareModels(*greyModel(1, 0), *greyModel(1, 0), s_magenta).shown, 0U);
    EXPECT_EQ(compareModels(*greyModel(1, 0), *greyModel(1, 0), s_magenta).similarity, 1.0);
}

TEST(ImageCompare, StructureCountsAndNotOnlyColour) {
    const auto stripes = [](int shift) {
        ImagePtr image = new NBX::MemoryImage(64, 32, NBX::LS_RGB);
        for (int y = 0; y < 32; ++y)
            for (int x = 0; x < 64; ++x) {
                const double grey = (x + shift) / 4 % 2 == 0 ? 0.25 : 0.75;
                image->setColor(x, y, NBX::Color(grey, grey, grey));
            }
        return image;
    };
    EXPECT_LT(compareModels(*stripes(4), *stripes(0), s_magenta).similarity, -0.5) << "the inverse";
    EXPECT_LT(compareModels(*stripes(1), *stripes(0), s_magenta).similarity, 0.7);
    EXPECT_EQ(compareModels(*stripes(8), *stripes(0), s_magenta).similarity, 1.0);
}

TEST(ImageCompare, WhatIsNoPictureIsNoGoldenPicture) {
    EXPECT_FALSE(readPng("/nonexistent.png"));
    EXPECT_FALSE(readPng(ZMT_DATA_DIR "/README.md"));
}

} // namespace
