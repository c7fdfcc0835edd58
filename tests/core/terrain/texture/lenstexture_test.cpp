#include <zmt/core/terrain/texture/lenstexture.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include <nbx/gl/texture/imagetexture2dgl.h>

#include "faketerraintexture.h"

using NBX::Bounds;
using ZMT::CORE::LensTexture;
using ZMT::CORE::SimpleTerrainTexture;
using Point = NBX::Vector3Base<double>;

namespace {

constexpr double s_unbounded = 1e42;

/// Gives the distance itself, and notes what it was asked.
class Distance : public LensTexture::Intensity {
    NBX_TEMPLATE_CLASS(Distance, LensTexture::Intensity)
public:
    double call(double r) override {
        largest = std::max(largest, r);
        ++calls;
        return r * factor;
    }
    double factor = 1.0, largest = 0.0;
    int calls = 0;
};

class LensTextureTest : public testing::Test {
protected:
    static NBX::SO<NBX::ImageTexture2DGL> textureOf(const LensTexture & lens) {
        return dynamic_cast<NBX::ImageTexture2DGL *>(lens.texture());
    }
    static NBX::SO<NBX::Image> imageOf(const LensTexture & lens) { return textureOf(lens)->getImage(); }
    static NBX::SO<LensTexture> lens(double inner, double outer, double fade) {
        return new LensTexture(inner, outer, fade, LensTexture::TT_Luminance, {0, 0, 0}, {1, 1, 1});
    }
    static int valueAt(const NBX::SO<NBX::Image> & image, int x, int y) {
        return *image->pixelComponentsU8(x, y);
    }

    RecordedReports reports;
};

TEST_F(LensTextureTest, TheTypeSelectsTheLayers) {
    const struct {
        int type;
        NBX::LayerSequence layers;
    } rows[] = {{0, NBX::LS_Luminance}, {1, NBX::LS_Alpha}, {2, NBX::LS_Intensity}};
    for (const auto & row : rows) {
        const NBX::SO<LensTexture> made(
            new LensTexture(1, 0, 0.5, LensTexture::TextureType(row.type), {0, 0, 0}, {1, 1, 1}));
        const auto image = imageOf(*made);
        EXPECT_EQ(image->layerSequence(), row.layers);
        EXPECT_EQ(image->width(), 512);
        EXPECT_EQ(image->height(), 512);
        EXPECT_EQ(image->bitsPerPixel(), 8);
        EXPECT_EQ(valueAt(image, 256, 256), 255);
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(LensTextureTest, OtherTypesAreReported) {
    const NBX::SO<LensTexture> made(
        new LensTexture(1, 0, 0.5, LensTexture::TextureType(3), {0, 0, 0}, {1, 1, 1}));
    EXPECT_EQ(reports.count(0, L"false", L"invalid texture type"), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(imageOf(*made)->layerSequence(), NBX::LS_Luminance);
}

TEST_F(LensTextureTest, TheImageShowsTheDistanceFromItsMiddle) {
    const NBX::SO<Distance> distance(new Distance);
    const NBX::SO<LensTexture> made(
        new LensTexture(distance.get(), LensTexture::TT_Luminance, {0, 0, 0}, {1, 1, 1}));
    EXPECT_EQ(distance->calls, 256 * 256);
    EXPECT_EQ(distance->largest, 1.0);
    const auto image = imageOf(*made);
    for (int i = 0; i < 256; ++i)
        for (int j = 0; j < 256; ++j) {
            const bool edge = i == 255 || j == 255;
            const double x = j / 255.0, y = i / 255.0;
            const double r = edge ? 1.0 : std::min(std::sqrt(x * x + y * y), 1.0);
            const int value = valueAt(image, j + 256, i + 256);
            ASSERT_EQ(value, int(r * 255.0)) << j << ", " << i;
            ASSERT_EQ(valueAt(image, 255 - j, 255 - i), value);
            ASSERT_EQ(valueAt(image, j + 256, 255 - i), value);
            ASSERT_EQ(valueAt(image, 255 - j, i + 256), value);
        }
}

TEST_F(LensTextureTest, TheOutermostRingIsTheEdge) {
    const auto image = imageOf(*lens(1.0, 0.2, 0.0));
    for (int i = 0; i < 512; ++i) {
        for (const int at :
             {valueAt(image, i, 0), valueAt(image, i, 511), valueAt(image, 0, i), valueAt(image, 511, i)})
            ASSERT_EQ(at, 51) << i;
    }
    EXPECT_EQ(valueAt(image, 256, 510), 255);
}

TEST_F(LensTextureTest, TheSeamIsLinear) {
    const struct {
        double inner, outer, fade, at;
        int expected;
    } rows[] = {
        {1.0, 0.0, 0.0, 0.0, 255},    {1.0, 0.0, 0.0, 254.0, 255}, // a hard edge
        {1.0, 0.0, 0.0, 255.0, 0},    {1.0, 0.0, 1.0, 0.0, 255},   {1.0, 0.0, 1.0, 127.5, -1},
        {0.0, 1.0, 0.5, 100.0, 0},    {0.0, 1.0, 0.5, 191.25, -1}, {0.6, 0.6, 0.5, 200.0, 153},
        {2.0, -1.0, 0.0, 0.0, 255},   {2.0, -1.0, 3.0, 255.0, 0},  {-1.0, 2.0, -3.0, 254.0, 0},
        {-1.0, 2.0, 0.0, 255.0, 255},
    };
    for (const auto & row : rows) {
        const auto image = imageOf(*lens(row.inner, row.outer, row.fade));
        const int value = valueAt(image, 256 + int(row.at), 256);
        if (row.expected < 0)
            EXPECT_NEAR(value, 127, 2) << row.inner << " " << row.fade << " " << row.at;
        else
            EXPECT_EQ(value, row.expected) << row.inner << " " << row.fade << " " << row.at;
    }
}

TEST_F(LensTextureTest, IntensitiesAreCut) {
    for (const double factor : {3.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
        const NBX::SO<Distance> distance(new Distance);
        distance->factor = factor;
        const NBX::SO<LensTexture> made(
            new LensTexture(distance.get(), LensTexture::TT_Luminance, {0, 0, 0}, {1, 1, 1}));
        EXPECT_EQ(valueAt(imageOf(*made), 0, 0), factor > 0.0 ? 255 : 0);
    }
}

TEST_F(LensTextureTest, AMissingIntensityIsReported) {
    const NBX::SO<LensTexture> made(
        new LensTexture(nullptr, LensTexture::TT_Luminance, {0, 0, 0}, {1, 1, 1}));
    EXPECT_EQ(reports.count(0, L"intensity", L"no intensity"), 1U) << reports;
    EXPECT_EQ(valueAt(imageOf(*made), 256, 256), 0);
}

TEST_F(LensTextureTest, TheOutsideGoesOnBeyondTheLens) {
    const auto made = lens(1.0, 0.2, 0.0);
    EXPECT_EQ(textureOf(*made)->getWrapS(), NBX::TextureGL::WM_ClampToEdge);
    EXPECT_EQ(textureOf(*made)->getWrapT(), NBX::TextureGL::WM_ClampToEdge);
    EXPECT_EQ(textureOf(*made)->getBorderColor(), NBX::Color(0.0, 0.0, 0.0, 0.0));
    EXPECT_EQ(made->minFilter(), NBX::TextureGL::FM_LinearMipmapLinear);
    EXPECT_EQ(made->magFilter(), NBX::TextureGL::FM_Linear);
}

TEST_F(LensTextureTest, CenterAndRadiusAreThoseOfTheBox) {
    const NBX::SO<LensTexture> made(
        new LensTexture(1, 0, 0.5, LensTexture::TT_Alpha, {100, 7, 200}, {10, 5, 20}));
    EXPECT_EQ(made->getCenter(), Point(100, -s_unbounded, 200));
    EXPECT_EQ(made->getRadius(), Point(10, 0, 20));
    EXPECT_TRUE(made->boundingBox() == Bounds(Point(90, -s_unbounded, 180), Point(110, s_unbounded, 220)));
    const auto before = made->lastTransactionNo();
    made->setCenter({-50, 3, 60});
    EXPECT_EQ(made->getCenter(), Point(-50, -s_unbounded, 60));
    EXPECT_EQ(made->getRadius(), Point(10, 0, 20));
    EXPECT_GT(made->lastTransactionNo(), before);
}

TEST_F(LensTextureTest, TheRadiusHasNeitherSignNorHeight) {
    const NBX::SO<LensTexture> made(
        new LensTexture(1, 0, 0.5, LensTexture::TT_Alpha, {100, 0, 200}, {-3, 4, -5}));
    EXPECT_EQ(made->getRadius(), Point(3, 0, 5));
    const auto before = made->lastTransactionNo();
    made->setRadius({-10, 5, 20});
    EXPECT_EQ(made->getRadius(), Point(10, 0, 20));
    EXPECT_EQ(made->getCenter(), Point(100, -s_unbounded, 200));
    EXPECT_TRUE(made->boundingBox() == Bounds(Point(90, -s_unbounded, 180), Point(110, s_unbounded, 220)));
    EXPECT_GT(made->lastTransactionNo(), before);
}

TEST_F(LensTextureTest, ThePlaceThatItHasIsAChangeAsWell) {
    const NBX::SO<LensTexture> made(
        new LensTexture(1, 0, 0.5, LensTexture::TT_Alpha, {100, 0, 200}, {10, 0, 20}));
    const Bounds box = made->boundingBox();
    auto before = made->lastTransactionNo();
    made->setCenter({100, 0, 200});
    EXPECT_GT(made->lastTransactionNo(), before);
    before = made->lastTransactionNo();
    made->setRadius({10, 0, 20});
    EXPECT_GT(made->lastTransactionNo(), before);
    EXPECT_TRUE(made->boundingBox() == box);
}

TEST_F(LensTextureTest, ALensMapsItsBoxToTheImage) {
    TextureArguments arguments;
    const NBX::SO<LensTexture> made(
        new LensTexture(1, 0, 0.5, LensTexture::TT_Alpha, {100, 0, 200}, {10, 0, 20}));
    const auto texture = arguments.request(*made);
    ASSERT_TRUE(texture);
    EXPECT_LT((texture->getMatrix() * Point(90, 180, 0) - Point(0, 0, 0)).length(), 1e-12);
    EXPECT_LT((texture->getMatrix() * Point(110, 220, 0) - Point(1, 1, 0)).length(), 1e-12);
    made->setRadius({0, 0, 20});
    EXPECT_FALSE(arguments.request(*made)) << "a lens without area shows nothing";
}

TEST_F(LensTextureTest, StoresWhatSimpleTexturesStore) {
    const NBX::SO<LensTexture> made(
        new LensTexture(0.8, 0.2, 0.5, LensTexture::TT_Intensity, {100, 0, 200}, {10, 0, 20}));
    EXPECT_EQ(RecordedAttributes::of(*made),
              RecordedAttributes::of(*NBX::SO<SimpleTerrainTexture>(new SimpleTerrainTexture)));
    const auto read = roundTrip(made);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->getCenter(), made->getCenter());
    EXPECT_EQ(read->getRadius(), made->getRadius());
    for (const int x : {0, 30, 256, 400})
        EXPECT_EQ(valueAt(imageOf(*read), x, 256), valueAt(imageOf(*made), x, 256));
    EXPECT_TRUE(NBX::SerializationManager::isRegistered(LensTexture::ClassNameNBX()));
    EXPECT_TRUE(reports.empty()) << reports;
}

} // namespace
