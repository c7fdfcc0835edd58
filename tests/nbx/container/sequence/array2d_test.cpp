#include <nbx/container/sequence/array2d.h>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array2diterator2d.h>
#include <support/recordedreports.h>

using namespace NBX;

namespace {

TEST(Array2D, RunsRowByRow) {
    const SO<Array2D<int>> array(new Array2D<int>(3, 2));
    for (unsigned y = 0; y < 2; ++y)
        for (unsigned x = 0; x < 3; ++x)
            array->set(x, y, static_cast<int>(10 * y + x));
    const std::vector<int> expected{0, 1, 2, 10, 11, 12};
    EXPECT_EQ(std::vector<int>(array->beginSTL(), array->endSTL()), expected);
    const SO<Iterator2D<int>> over(new Array2DIterator2D<int>(array.get()));
    EXPECT_EQ(std::vector<int>(over->beginSTL(), over->endSTL()), expected);
    EXPECT_EQ(over->get(2, 1), 12);
    EXPECT_EQ(over->sizeX(), 3U);
    EXPECT_EQ(over->sizeY(), 2U);
    EXPECT_EQ(over->pointer()[4], 11);
    EXPECT_EQ(over->container(), array.get());
}

TEST(Array2D, PlacesOutsideAreReported) {
    const RecordedReports reports;
    const SO<Array2D<int>> array(new Array2D<int>(3, 2, 7));
    EXPECT_EQ(array->get(3, 0), 0);
    EXPECT_EQ(array->get(0, 2), 0);
    array->set(3, 1, 9);
    EXPECT_EQ(reports.count(L"place out of range"), 3U);
    EXPECT_EQ(array->get(6U), 0);
    EXPECT_EQ(reports.last().message, L"i out of range");
}

TEST(Array2D, MoreElementsThanCanBeCountedAreReported) {
    const RecordedReports reports;
    const SO<Array2D<char>> array(new Array2D<char>(65536, 65536));
    EXPECT_EQ(reports.count(L"too many elements"), 1U);
    EXPECT_EQ(array->size(), 0U);
}

TEST(Array2D, NoArrayIsReportedAndEmpty) {
    const RecordedReports reports;
    const SO<Iterator2D<int>> over(new Array2DIterator2D<int>(nullptr));
    EXPECT_EQ(reports.last().message, L"no array");
    EXPECT_EQ(over->size(), 0U);
    EXPECT_EQ(over->get(0, 0), 0);
}

} // namespace
