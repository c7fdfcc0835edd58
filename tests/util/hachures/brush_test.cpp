#include "util/hachures/brush.h"

#include <cstring>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>

#include "support/recordedreports.h"

namespace {

using NBX::SO;
using ZMT::UTIL::Brush;

/// The numbers, the upper line first.
std::string text(const NBX::Image & image) {
    std::string result;
    for (int y = image.height(); y-- > 0;) {
        for (int x = 0; x < image.width(); ++x)
            result += std::to_string(*image.pixelComponentsU8(x, y)) + (x + 1 < image.width() ? " " : "\n");
    }
    return result;
}

SO<NBX::Image> white(int width, int height) {
    SO<NBX::Image> image(new NBX::MemoryImage(width, height, NBX::LS_Luminance));
    for (int y = 0; y < height; ++y)
        std::memset(image->lineComponentsU8(y), 255, std::size_t(width));
    return image;
}

TEST(Brush, RoundOnesFadeFromTheInnerToTheOuterCircle) {
    // At a distance of 1 half of the way is done; the corners lie 1.41 away.
    EXPECT_EQ("233 127 233\n"
              "127 0 127\n"
              "233 127 233\n",
              text(*Brush::createRound(3.0, 1.0)));
    EXPECT_EQ("255 249 156 249 255\n"
              "249 0 0 0 249\n"
              "156 0 0 0 156\n"
              "249 0 0 0 249\n"
              "255 249 156 249 255\n",
              text(*Brush::createRound(4.5, 3.2)));
}

TEST(Brush, RoundOnesOfOneSizeHaveNoEdgeBetween) {
    EXPECT_EQ("255 0 0 255\n"
              "0 0 0 0\n"
              "0 0 0 0\n"
              "255 0 0 255\n",
              text(*Brush::createRound(4.0, 4.0)));
    EXPECT_EQ("0 0\n0 0\n", text(*Brush::createRound(1.5, 1.5))) << "the smallest";
}

TEST(Brush, SizesAreChecked) {
    struct Case {
        double stroke, inner;
        const wchar_t *condition, *message;
    };
    for (const Case & wrong :
         {Case{1.4, 1.0, L"strokeSize >= 1.5", L"stroke size must be greater than 1.5"},
          {3.0, 0.0, L"innerStrokeSize > 0", L"inner stroke size not positive"},
          {3.0, 3.1, L"innerStrokeSize <= strokeSize", L"inner stroke size not less than stroke size"}}) {
        const RecordedReports reports;
        EXPECT_FALSE(Brush::createRound(wrong.stroke, wrong.inner));
        EXPECT_EQ(1U, reports.size());
        EXPECT_EQ(1U, reports.count(0, wrong.condition, wrong.message)) << reports;
    }
}

TEST(Brush, StampsDarkenAroundTheirMiddle) {
    const SO<NBX::Image> image = white(5, 5);
    *image->pixelComponentsU8(2, 2) = 50;
    *image->pixelComponentsU8(3, 2) = 100;
    Brush::stamp(*Brush::createRound(3.0, 1.0), 3, 2, *image);
    EXPECT_EQ("255 255 255 255 255\n"
              "255 255 233 127 233\n"
              "255 255 50 0 127\n"
              "255 255 233 127 233\n"
              "255 255 255 255 255\n",
              text(*image));
}

TEST(Brush, StampsEndAtTheBorder) {
    const SO<NBX::Image> image = white(3, 2);
    const SO<NBX::Image> brush = Brush::createRound(4.0, 4.0);
    for (const auto & [x, y] : {std::pair{-9, 0}, {0, 40}, {-3, 0}})
        Brush::stamp(*brush, x, y, *image);
    EXPECT_EQ(text(*white(3, 2)), text(*image)) << "beside it";
    Brush::stamp(*brush, 0, 0, *image);
    EXPECT_EQ("0 255 255\n0 0 255\n", text(*image)) << "an even brush has its pixel 2 there";
}

TEST(Brush, InkIsThatAcrossTheMiddle) {
    EXPECT_NEAR(2.0, Brush::inkWidth(*Brush::createRound(3.0, 1.0)), 0.01);
    EXPECT_EQ(4.0, Brush::inkWidth(*Brush::createRound(4.0, 4.0)));
    EXPECT_NEAR(6.0, Brush::inkWidth(*Brush::createRound(7.0, 5.0)), 0.01);
}

} // namespace
