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

TEST(ImageCompare, WhatIsNoPictureIsNoGoldenPicture) {
    EXPECT_FALSE(readPng("/nonexistent.png"));
    EXPECT_FALSE(readPng(ZMT_DATA_DIR "/README.md"));
}

} // namespace
