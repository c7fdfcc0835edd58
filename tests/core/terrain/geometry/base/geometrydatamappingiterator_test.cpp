#include <gtest/gtest.h>

#include "core/terrain/geometry/base/geometrydatamappingiterator.h"

#include "support/fakegeometrydata.h"
#include "support/testterrain.h"
#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

using ZMT::CORE::GeometryData_MappingIterator;
using Point = NBX::Vector3Base<double>;
using TestTerrain::array;
using TestTerrain::values;

namespace {

TEST(GeometryDataMappingIterator, GivesPositionsOrNormalsOfTheNumbers) {
    const NBX::SO<FakeGeometryData> data(
        new FakeGeometryData(std::vector<Point>{{0, 1, 2}, {3, 4, 5}, {6, 7, 8}}));
    const auto numbers = array<unsigned>({2, 0, 2});
    const NBX::SO<GeometryData_MappingIterator> positions(
        new GeometryData_MappingIterator(data.get(), numbers.get(), false));
    const NBX::SO<GeometryData_MappingIterator> normals(
        new GeometryData_MappingIterator(data.get(), numbers.get(), true));
    EXPECT_EQ(values<Point>(positions.get()), (std::vector<Point>{{6, 7, 8}, {0, 1, 2}, {6, 7, 8}}));
    EXPECT_EQ(values<Point>(normals.get()), (std::vector<Point>{{2, 1, 0}, {0, 1, 0}, {2, 1, 0}}));
}

TEST(GeometryDataMappingIterator, StoresDataNumbersAndKind) {
    const auto grid = TestTerrain::grid({3, 3, 100.0, 200.0, 2.0, 4.0}, TestTerrain::bumpy);
    const auto numbers = array<unsigned>({8, 4, 0});
    for (const bool normals : {false, true}) {
        const NBX::SO<GeometryData_MappingIterator> written(
            new GeometryData_MappingIterator(grid.get(), numbers.get(), normals));
        EXPECT_EQ(RecordedAttributes::of(*written), (std::vector<std::string>{"data", "indices", "normals"}));
        const auto read = roundTrip(written);
        ASSERT_TRUE(read);
        EXPECT_EQ(values<Point>(read.get()), values<Point>(written.get()));
    }
}

TEST(GeometryDataMappingIterator, IsEmptyWhenItsDataCannotBeStored) {
    RecordedReports reports;
    const NBX::SO<FakeGeometryData> data(new FakeGeometryData(std::vector<Point>{{0, 1, 2}}));
    const auto numbers = array<unsigned>({0});
    const NBX::SO<GeometryData_MappingIterator> written(
        new GeometryData_MappingIterator(data.get(), numbers.get(), false));
    const auto read = roundTrip(written);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->size(), 0U);
    EXPECT_GE(reports.size(), 1U);
}

} // namespace
