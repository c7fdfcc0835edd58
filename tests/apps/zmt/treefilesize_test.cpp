#include "treefilesize.h"

#include <gtest/gtest.h>

#include <nbx/math/vector3base.h>
#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/core/terrain/geometry/view/builtterrain.h>
#include <zmt/raster/simplerasterdata.h>

#include "landscape/errors.h"

using ZMT::CORE::BuiltTerrain;
using ZMT::CORE::GridData;
using Point = NBX::Vector3Base<double>;

namespace {

/// Flat ground of 20 by 30 vertices.
NBX::SO<GridData> flatGround() {
    const NBX::SO<ZMT::RASTER::SimpleRasterData<float>> raster(
        new ZMT::RASTER::SimpleRasterData<float>(20, 30, 0.0, 0.0, 1.0, 1.0, false, 0.0F));
    return new GridData(raster.get());
}

/// What is told when no more than `most` bytes may be written; nothing when that will do.
std::string toldFor(const GridData & grid, std::uint64_t most) {
    try {
        checkTreeFileSize("heights.tif", grid, 100, most);
    } catch (const DataError & error) {
        return error.what();
    }
    return "";
}

TEST(CheckTreeFileSize, WhatIsLargerThanAFileIsToldWithWhatToDo) {
    const auto grid = flatGround();
    const std::uint64_t bytes = BuiltTerrain::expectedBytes(20, 30, 100);
    EXPECT_EQ(toldFor(*grid, bytes), "");
    EXPECT_EQ(toldFor(*grid, bytes - 1),
              "heights.tif: its tree would take 1 GiB, and a file holds 4; give a smaller "
              "raster or fewer --max-vertices");
    EXPECT_NO_THROW(checkTreeFileSize("heights.tif", *grid, 100)) << "4 GiB";
}

TEST(CheckTreeFileSize, WhatBreakLinesAddCounts) {
    const std::vector<std::vector<Point>> towers{{{10.5, 75.0, 10.5}, {4.25, 60.0, 20.5}}};
    const auto stamped = ZMT::CORE::CreateHybridData::create(flatGround(), towers);
    ASSERT_TRUE(stamped);
    const unsigned added = stamped->vertices() - 600;
    ASSERT_GT(added, 0U);
    const std::uint64_t bytes = BuiltTerrain::expectedBytes(20, 30, 100, added);
    EXPECT_GT(bytes, BuiltTerrain::expectedBytes(20, 30, 100));
    EXPECT_EQ(toldFor(*stamped, bytes), "");
    EXPECT_NE(toldFor(*stamped, bytes - 1).find("fewer --breaklines or"), std::string::npos);
}

} // namespace
