#include <gtest/gtest.h>

#include "core/terrain/frame/geotransformationcoordtransformiterator.h"
#include <zmt/core/terrain/frame/geotransformation.h>

#include "support/testterrain.h"
#include <support/recordedattributes.h>
#include <support/roundtrip.h>

using ZMT::CORE::GeoTransformation;
using ZMT::CORE::GeoTransformation_CoordTransformIterator;
using Point = GeoTransformation::Point;
using Names = std::vector<std::string>;

namespace {

class CoordTransformIteratorTest : public testing::Test {
protected:
    ~CoordTransformIteratorTest() override { GeoTransformation::setNBXOrigin({}); }

    NBX::SO<NBX::Array<Point>> points_ = TestTerrain::array<Point>({{1, 2, 3}, {4, 5, 6}});
};

TEST_F(CoordTransformIteratorTest, ReadsWithTheOriginOfTheMoment) {
    const NBX::SO<GeoTransformation_CoordTransformIterator> scene(
        new GeoTransformation_CoordTransformIterator(points_, true));
    EXPECT_EQ(scene->get(0), Point(1, 2, 3));
    GeoTransformation::setNBXOrigin({1, 1, 1});
    EXPECT_EQ(scene->get(0), Point(0, 1, 2));
}

TEST_F(CoordTransformIteratorTest, CopiesNothing) {
    const NBX::SO<GeoTransformation_CoordTransformIterator> scene(
        new GeoTransformation_CoordTransformIterator(points_, true));
    points_->set(1, {7, 8, 9});
    points_->append({0, 0, 0});
    EXPECT_EQ(scene->size(), 3U);
    EXPECT_EQ(scene->get(1), Point(7, 8, 9));
    EXPECT_EQ(scene->pointer(), nullptr);
    EXPECT_EQ(scene->container(), points_.get());
}

TEST_F(CoordTransformIteratorTest, WithoutAMasterItIsEmpty) {
    const NBX::SO<GeoTransformation_CoordTransformIterator> none(
        new GeoTransformation_CoordTransformIterator(nullptr, true));
    EXPECT_EQ(none->size(), 0U);
    EXPECT_EQ(none->container(), nullptr);
}

TEST_F(CoordTransformIteratorTest, StoresMasterAndDirection) {
    const NBX::SO<GeoTransformation_CoordTransformIterator> geo(
        new GeoTransformation_CoordTransformIterator(points_, false));
    EXPECT_EQ(RecordedAttributes::of(*geo), (Names{"master", "geo2nbx"}));

    GeoTransformation::setNBXOrigin({10, 20, 30});
    for (const bool geo2nbx : {false, true}) {
        const NBX::SO<GeoTransformation_CoordTransformIterator> written(
            new GeoTransformation_CoordTransformIterator(points_, geo2nbx));
        const auto read = roundTrip(written);
        ASSERT_TRUE(read);
        EXPECT_EQ(TestTerrain::values<Point>(read.get()), TestTerrain::values<Point>(written.get()));
    }
}

/// Asked for its points, one that is its own master would never answer.
TEST_F(CoordTransformIteratorTest, NoStoredMasterIsItsOwn) {
    const NBX::SO<NBX::Iterator<Point>> inner(new GeoTransformation_CoordTransformIterator(points_, true));
    const NBX::SO<NBX::Iterator<Point>> outer(new GeoTransformation_CoordTransformIterator(inner, false));
    const auto bytes = NBX::ObjectStreamWriter::write(*outer, true);
    unsigned circles = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        for (std::uint8_t value = 0; value < 8; ++value) {
            auto changed = bytes;
            changed[i] = value;
            try {
                const auto object = NBX::ObjectStreamReader(changed.data(), changed.size()).read();
                const auto * read = dynamic_cast<const NBX::Iterator<Point> *>(object.get());
                for (unsigned k = 0; read && k < read->size(); ++k)
                    read->get(k);
            } catch (const NBX::IOError & e) {
                circles += e.message().find(L"their own master") != std::wstring::npos;
            } catch (const NBX::Exception &) {
            }
        }
    EXPECT_GE(circles, 2U) << "the inner one has itself, and the outer one, as its master";
}

TEST_F(CoordTransformIteratorTest, StoredTransformationsMayBeNestedToSomeDepth) {
    NBX::SO<NBX::Iterator<Point>> points(points_);
    for (unsigned depth = 1; depth <= 64; ++depth)
        points = new GeoTransformation_CoordTransformIterator(points, depth % 2 == 0);
    EXPECT_EQ(roundTrip(points)->size(), 2U);
    points = new GeoTransformation_CoordTransformIterator(points, true);
    EXPECT_THROW(roundTrip(points), NBX::IOError);
}

} // namespace
