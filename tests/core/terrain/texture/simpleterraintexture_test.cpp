#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include <support/readingstream.h>
#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include <nbx/image/memoryimage.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>

#include "faketerraintexture.h"

using NBX::Bounds;
using NBX::TextureGL;
using ZMT::CORE::SimpleTerrainTexture;
using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;

namespace {

const Bounds s_box(Point(100, 0, 200), Point(110, 5, 240));
const Bounds s_storedBox(Point(100, -1e42, 200), Point(110, 1e42, 240));

/// Counts the calls of the virtual setter.
class CountingTexture : public SimpleTerrainTexture {
public:
    using SimpleTerrainTexture::SimpleTerrainTexture;
    void setBoundingBox(const Bounds & box) override {
        ++calls;
        SimpleTerrainTexture::setBoundingBox(box);
    }
    int calls = 0;
};

class SimpleTerrainTextureTest : public testing::Test {
protected:
    NBX::SO<SimpleTerrainTexture> draped(const Bounds & box, const Matrix & matrix = Matrix()) const {
        return new SimpleTerrainTexture(image_, box, matrix);
    }

    RecordedReports reports_;
    TextureArguments arguments_;
    NBX::SO<TextureGL> image_ = new NBX::ImageTexture2DGL(nullptr);
};

TEST_F(SimpleTerrainTextureTest, StartsWithNothingToShow) {
    const NBX::SO<SimpleTerrainTexture> none(new SimpleTerrainTexture);
    EXPECT_EQ(none->texture(), nullptr);
    EXPECT_EQ(none->minFilter(), TextureGL::FM_LinearMipmapLinear);
    EXPECT_EQ(none->magFilter(), TextureGL::FM_Linear);
    EXPECT_FALSE(none->boundingBox().isDefined());
    EXPECT_EQ(none->textureMatrix(), Matrix());
    EXPECT_FALSE(arguments_.request(*none));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(SimpleTerrainTextureTest, NullTextureIsReportedAndGivesNull) {
    const NBX::SO<SimpleTerrainTexture> none(new SimpleTerrainTexture(nullptr, s_box, Matrix()));
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"texture", L"no texture"), 1U) << reports_;
    EXPECT_FALSE(arguments_.request(*none));
}

TEST_F(SimpleTerrainTextureTest, TakesTheFiltersOfItsTexture) {
    image_->setMinFilter(TextureGL::FM_Nearest);
    image_->setMagFilter(TextureGL::FM_Nearest);
    const auto texture = draped(s_box);
    EXPECT_EQ(texture->minFilter(), TextureGL::FM_Nearest);
    EXPECT_EQ(texture->magFilter(), TextureGL::FM_Nearest);
    EXPECT_EQ(texture->texture(), image_.get());
}

TEST_F(SimpleTerrainTextureTest, NeverWantsRefinement) {
    EXPECT_FALSE(arguments_.refine(*draped(s_box)));
}

TEST_F(SimpleTerrainTextureTest, OnlyThePlanOfTheBoxCounts) {
    EXPECT_TRUE(draped(s_box)->boundingBox() == s_storedBox);
}

TEST_F(SimpleTerrainTextureTest, TheBoxMapsToTheUnitSquare) {
    const auto texture = draped(s_box);
    EXPECT_EQ(arguments_.request(*texture), image_);
    const Matrix & matrix = image_->getMatrix();
    EXPECT_EQ(matrix * Point(100, 200, 0), Point(0, 0, 0));
    EXPECT_EQ(matrix * Point(110, 240, 0), Point(1, 1, 0));
    EXPECT_EQ(matrix * Point(105, 210, 0), Point(0.5, 0.25, 0));
}

TEST_F(SimpleTerrainTextureTest, AnUndefinedBoxCoversEverythingWithTheGivenMatrix) {
    const Matrix matrix = Matrix::scaling(Point(2, 3, 1));
    const auto texture = draped(Bounds(), matrix);
    EXPECT_EQ(arguments_.request(*texture), image_);
    EXPECT_EQ(image_->getMatrix(), matrix);
    EXPECT_FALSE(texture->boundingBox().isDefined());
}

TEST_F(SimpleTerrainTextureTest, ABoxWithoutAreaShowsNothing) {
    for (const Bounds & box : {Bounds(Point(100, 0, 200), Point(100, 5, 240)),
                               Bounds(Point(100, 0, 200), Point(110, 5, 200)), Bounds(Point(1, 2, 3))}) {
        const auto texture = draped(box);
        EXPECT_FALSE(arguments_.request(*texture));
        EXPECT_FALSE(arguments_.request(*texture)) << "the second time";
        EXPECT_EQ(texture->boundingBox().getLLF().x, box.getLLF().x);
        EXPECT_EQ(texture->boundingBox().getURB().z, box.getURB().z);
        EXPECT_EQ(texture->boundingBox().getURB().y, 1e42);
    }
}

TEST_F(SimpleTerrainTextureTest, ABoxWithAreaAgainShowsAgain) {
    const auto texture = draped(Bounds(Point(1, 2, 3)));
    texture->setBoundingBox(s_box);
    EXPECT_EQ(arguments_.request(*texture), image_);
}

TEST_F(SimpleTerrainTextureTest, TheSameBoxIsNoChange) {
    const auto texture = draped(s_box);
    const auto before = texture->lastTransactionNo();
    texture->setBoundingBox(texture->boundingBox());
    EXPECT_EQ(texture->lastTransactionNo(), before);
    texture->setBoundingBox(Bounds(Point(0, 0, 0), Point(1, 1, 1)));
    EXPECT_GT(texture->lastTransactionNo(), before);
}

TEST_F(SimpleTerrainTextureTest, AnUndefinedBoxIsAChangeAndKeepsTheStoredOne) {
    const auto texture = draped(s_box);
    const auto before = texture->lastTransactionNo();
    texture->setBoundingBox(Bounds());
    EXPECT_GT(texture->lastTransactionNo(), before);
    EXPECT_TRUE(texture->boundingBox() == s_storedBox);
    EXPECT_EQ(image_->getMatrix(), Matrix());
}

TEST_F(SimpleTerrainTextureTest, TheTextureMatrixWorksBehindTheBox) {
    const auto texture = draped(s_box);
    const Matrix matrix = Matrix::translation(Point(0.5, 0.25, 0)) * Matrix::scaling(Point(2, 4, 1));
    texture->setTextureMatrix(matrix);
    EXPECT_EQ(texture->textureMatrix(), matrix);
    EXPECT_NE(image_->getMatrix(), matrix);
    EXPECT_EQ(image_->getMatrix() * Point(110, 240, 0), Point(2.5, 4.25, 0));
    EXPECT_EQ(image_->getMatrix() * Point(100, 200, 0), Point(0.5, 0.25, 0));
    EXPECT_EQ(arguments_.request(*texture), image_);
}

TEST_F(SimpleTerrainTextureTest, AnEqualTextureMatrixIsNoChange) {
    const NBX::SO<CountingTexture> texture(new CountingTexture(image_, s_box, Matrix()));
    const auto before = texture->lastTransactionNo();
    texture->setTextureMatrix(Matrix());
    EXPECT_EQ(texture->lastTransactionNo(), before);
    EXPECT_EQ(texture->calls, 0);
}

TEST_F(SimpleTerrainTextureTest, TextureMatricesAreComparedByTheirBytes) {
    Matrix matrix;
    matrix(0, 3) = -0.0;
    ASSERT_EQ(matrix, Matrix());
    const auto texture = draped(s_box);
    const auto before = texture->lastTransactionNo();
    texture->setTextureMatrix(matrix);
    EXPECT_GT(texture->lastTransactionNo(), before);
    EXPECT_TRUE(std::signbit(texture->textureMatrix()(0, 3)));
}

TEST_F(SimpleTerrainTextureTest, ANewTextureMatrixGoesThroughTheVirtualSetter) {
    const NBX::SO<CountingTexture> texture(new CountingTexture(image_, s_box, Matrix()));
    texture->setTextureMatrix(Matrix::scaling(Point(2, 2, 2)));
    EXPECT_EQ(texture->calls, 1);
}

TEST_F(SimpleTerrainTextureTest, EveryBoxMapsItsCornersToTheUnitSquare) {
    constexpr unsigned seed = 5;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> map(-1e6, 1e6), extent(0.5, 1e5);
    for (int i = 0; i < 1000; ++i) {
        const Point llf(map(random), 0.0, map(random));
        const Bounds box(llf, llf + Point(extent(random), 1.0, extent(random)));
        draped(box);
        const Point low = image_->getMatrix() * Point(box.getLLF().x, box.getLLF().z, 0.0);
        const Point high = image_->getMatrix() * Point(box.getURB().x, box.getURB().z, 0.0);
        ASSERT_NEAR(low.x, 0.0, 1e-8);
        ASSERT_NEAR(low.y, 0.0, 1e-8);
        ASSERT_NEAR(high.x, 1.0, 1e-8);
        ASSERT_NEAR(high.y, 1.0, 1e-8);
    }
}

TEST_F(SimpleTerrainTextureTest, StoresTextureBoxAndMatrix) {
    const auto texture = draped(s_box, Matrix::scaling(Point(2, 2, 1)));
    EXPECT_EQ(RecordedAttributes::of(*texture),
              (std::vector<std::string>{"texture", "bbox", "textureMatrix"}));
    EXPECT_TRUE(
        RecordedAttributes::of(*NBX::SO<SimpleTerrainTexture>(new SimpleTerrainTexture), true).empty());
}

TEST_F(SimpleTerrainTextureTest, ReadingBuildsTheMatrixOnTheTextureAgain) {
    image_ = new NBX::ImageTexture2DGL(new NBX::MemoryImage(2, 2, NBX::LS_RGBA));
    const auto written = draped(s_box, Matrix::scaling(Point(2, 4, 1)));
    written->minFilter(TextureGL::FM_Nearest);
    const Matrix mapping = image_->getMatrix();
    const auto read = roundTrip(written);
    ASSERT_TRUE(read);
    ASSERT_TRUE(read->texture());
    EXPECT_EQ(read->texture()->getMatrix(), mapping);
    EXPECT_EQ(read->textureMatrix(), written->textureMatrix());
    EXPECT_TRUE(read->boundingBox() == s_storedBox);
    EXPECT_EQ(read->minFilter(), TextureGL::FM_Nearest);
    EXPECT_EQ(arguments_.request(*read).get(), read->texture());
    EXPECT_TRUE(reports_.empty()) << reports_;
}

/// The stream has another image and no matrix, and either no box or the one that the texture has.
TEST_F(SimpleTerrainTextureTest, ReadingIntoATextureInUseMapsTheNewImage) {
    const auto expected = draped(s_box);
    const Matrix ofBox = image_->getMatrix();
    for (const bool hasBox : {false, true}) {
        const auto texture = draped(s_box, Matrix::scaling(Point(2, 4, 1)));
        const NBX::SO<NBX::ImageTexture2DGL> other(
            new NBX::ImageTexture2DGL(new NBX::MemoryImage(2, 2, NBX::LS_RGBA)));
        other->setMatrix(Matrix::scaling(Point(3, 3, 3)));
        ReadingStream stream;
        stream.objects["texture"] = other.get();
        if (hasBox) stream.boxes["bbox"] = texture->boundingBox();
        texture->serialize(stream);
        EXPECT_EQ(arguments_.request(*texture).get(), other.get());
        EXPECT_EQ(other->getMatrix(), hasBox ? ofBox : Matrix());
    }
}

TEST_F(SimpleTerrainTextureTest, ReadsATextureThatCoversEverything) {
    const auto read = roundTrip(draped(Bounds()));
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->boundingBox().isDefined());
    EXPECT_TRUE(arguments_.request(*read));
}

TEST_F(SimpleTerrainTextureTest, ReadsATextureWithoutImageAsNothing) {
    const auto read = roundTrip(NBX::SO<SimpleTerrainTexture>(new SimpleTerrainTexture));
    ASSERT_TRUE(read);
    EXPECT_FALSE(arguments_.request(*read));
}

} // namespace
