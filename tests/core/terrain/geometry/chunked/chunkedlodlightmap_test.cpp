#include "core/terrain/geometry/chunked/chunkedlodlightmap.h"

#include <cmath>

#include <support/environmentvariable.h>
#include <support/filesizelimit.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

#include <nbx/image/image.h>
#include <nbx/object/progress.h>
#include <zmt/core/terrain/texture/tiledlodtexture.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/tiledgeoimage.h>

#include "chunkedfixture.h"

using TestChunked::ChunkedLodTerrain;
using TestChunked::Lattice;
using ZMT::CORE::TerrainTexture;
using ZMT::CORE::TiledLODTexture;
using Point = NBX::Vector3Base<double>;

namespace {

const ZMT::RASTER::RasterGrid s_layout{12, 8, 1000.0, 2000.0, 10.0, 20.0};

double hilly(unsigned x, unsigned y) {
    return (x * x + 3 * y * y + x * y) % 101;
}

class ChunkedLodLightMapTest : public testing::Test {
protected:
    ~ChunkedLodLightMapTest() override { EXPECT_TRUE(reports.empty()) << reports; }

    static NBX::SO<ZMT::RASTER::TiledGeoImage> imageOf(const NBX::SO<TerrainTexture> & texture) {
        const auto * tiled = dynamic_cast<const TiledLODTexture *>(texture.get());
        return tiled ? tiled->pyramid()->overview(0) : nullptr;
    }
    static NBX::SO<NBX::Image> pixelsOf(const NBX::SO<TerrainTexture> & texture) {
        const auto image = imageOf(texture);
        return image ? image->getImage(0, 0, unsigned(image->pixelsX()), unsigned(image->pixelsY()))
                     : nullptr;
    }

    /// By its definition.
    static Point normalAt(const Lattice & lattice, int width, int height, int x, int y) {
        const double k = 4915125.0 / std::max(width, height), f = k * 4.0 * k;
        const int xl = std::max(x - 1, 0), xr = std::min(x + 1, width - 1);
        const int yl = std::max(y - 1, 0), yr = std::min(y + 1, height - 1);
        const auto h = [&](int i, int j) {
            return double(lattice.heights()[lattice.heightIndex(unsigned(i), unsigned(j))]);
        };
        const double gx = (h(xl, y) - h(xr, y) + h(xl, yl) - h(xr, yr) + h(xl, yr) - h(xr, yl)) * k;
        const double gy = (h(x, yl) - h(x, yr) + h(xl, yl) - h(xr, yr) + h(xr, yl) - h(xl, yr)) * k;
        return Point(gx, f, gy).normalized();
    }

    /// The mean of four pixels.
    template <class Value> static double shrunk(int x, int y, Value value) {
        return (value(2 * x, 2 * y) + value(2 * x + 1, 2 * y) + value(2 * x, 2 * y + 1) +
                value(2 * x + 1, 2 * y + 1)) /
               4.0;
    }

    RecordedReports reports;
};

TEST_F(ChunkedLodLightMapTest, LightFallsByTheAngleToTheSun) {
    const auto terrain = TestChunked::terrain(s_layout, hilly);
    const Point direction(-3.0, 2.0, 1.0);
    const auto image = pixelsOf(terrain->createStaticLightMap(0.25, direction));
    ASSERT_TRUE(image);
    ASSERT_EQ(image->width(), 6);
    ASSERT_EQ(image->height(), 4);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x) {
            const double expected = shrunk(x, y, [&](int i, int j) {
                const double light =
                    std::max(normalAt(*terrain->impl(), 12, 8, i, j).dot(direction.normalized()), 0.0);
                return std::floor((0.25 + 0.75 * light) * 255.0);
            });
            EXPECT_NEAR(*image->pixelComponentsU8(x, y), expected, 1.0) << x << ", " << y;
        }
}

/// A roof under a sun that stands low in the west.
TEST_F(ChunkedLodLightMapTest, SlopesThatFaceAwayHaveAmbientLightAlone) {
    const auto terrain =
        TestChunked::terrain({12, 8}, [](unsigned x, unsigned) { return 1e3 * (x < 6 ? x : 11.0 - x); });
    const auto image = pixelsOf(terrain->createStaticLightMap(0.25, {-1.0, 0.01, 0.0}));
    ASSERT_TRUE(image);
    const Point away = normalAt(*terrain->impl(), 12, 8, 9, 4);
    EXPECT_LT(away.dot(Point(-1.0, 0.01, 0.0)), -0.02);
    for (int y = 0; y < 4; ++y) {
        EXPECT_GT(*image->pixelComponentsU8(1, y), 70) << "towards the sun";
        EXPECT_EQ(*image->pixelComponentsU8(4, y), 63) << "away from it";
    }
}

TEST_F(ChunkedLodLightMapTest, NormalsAreColours) {
    const auto terrain = TestChunked::terrain(s_layout, hilly);
    const auto image = pixelsOf(terrain->createDynamicLightMap());
    ASSERT_TRUE(image);
    ASSERT_GE(image->numberOfLayers(), 3);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            for (int layer = 0; layer < 3; ++layer) {
                const double expected = shrunk(x, y, [&](int i, int j) {
                    const Point n = normalAt(*terrain->impl(), 12, 8, i, j);
                    return std::floor((layer == 0 ? n.x : layer == 1 ? n.y : n.z) * 127.0 + 128.0);
                });
                EXPECT_NEAR(*image->pixelComponentsU8(x, y, layer), expected, 1.0) << x << ", " << y;
            }
}

TEST_F(ChunkedLodLightMapTest, WithoutADirectionThereIsAmbientLight) {
    const auto terrain = TestChunked::terrain(s_layout, hilly);
    const auto image = pixelsOf(terrain->createStaticLightMap(0.5, {}));
    for (int x = 0; x < 6; ++x)
        EXPECT_EQ(*image->pixelComponentsU8(x, 2), 127);
    const double nan = std::nan("");
    EXPECT_TRUE(terrain->createStaticLightMap(nan, {nan, nan, nan}));
}

TEST_F(ChunkedLodLightMapTest, LiesOverTheCellsOfTheRaster) {
    const auto terrain = TestChunked::terrain(s_layout, hilly);
    const auto image = imageOf(terrain->createDynamicLightMap());
    EXPECT_DOUBLE_EQ(image->minX(), 1000.0);
    EXPECT_DOUBLE_EQ(image->maxX(), 1110.0);
    EXPECT_DOUBLE_EQ(image->minY(), 2000.0);
    EXPECT_DOUBLE_EQ(image->maxY(), 2140.0);
}

TEST_F(ChunkedLodLightMapTest, BeyondTheLargestSizeTheLastColumnGoesOn) {
    const auto terrain = TestChunked::terrain({8200, 2}, [](unsigned x, unsigned) { return double(x % 50); });
    const auto image = pixelsOf(terrain->createStaticLightMap(0.0, {1.0, 1.0, 0.0}));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 4100);
    EXPECT_EQ(*image->pixelComponentsU8(4099, 0), unsigned(255.0 * std::sqrt(0.5))) << "flat";
}

TEST_F(ChunkedLodLightMapTest, BeyondTheLargestSizeTheLastRowGoesOn) {
    const auto terrain = TestChunked::terrain({2, 8200}, [](unsigned, unsigned y) { return double(y % 50); });
    const auto image = pixelsOf(terrain->createStaticLightMap(0.0, {0.0, 1.0, 1.0}));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->height(), 4100);
    EXPECT_EQ(*image->pixelComponentsU8(0, 4099), unsigned(255.0 * std::sqrt(0.5))) << "flat";
}

TEST_F(ChunkedLodLightMapTest, ALineOfCellsHasNone) {
    for (const ZMT::RASTER::RasterGrid & layout :
         {ZMT::RASTER::RasterGrid{1, 9}, ZMT::RASTER::RasterGrid{9, 1}, ZMT::RASTER::RasterGrid{1, 1}}) {
        const auto terrain = TestChunked::terrain(layout, hilly);
        EXPECT_FALSE(terrain->createStaticLightMap(0.5, {0, 1, 0}));
        EXPECT_FALSE(terrain->createDynamicLightMap());
    }
    EXPECT_TRUE(TestChunked::terrain({2, 3}, hilly)->createDynamicLightMap());
}

TEST_F(ChunkedLodLightMapTest, CancellingGivesNone) {
    struct Impatient : NBX::ProgressDisplay {
        std::string title;
        bool hasFile = false;
        void begin(const NBX::Progress & progress) override { title = progress.title(); }
        bool update(const NBX::Progress &) override {
            hasFile = TemporaryFolder::isMapped("zmt-clod-terrain-");
            return false;
        }
        void end(const NBX::Progress &) override {}
    } impatient;
    const auto terrain = TestChunked::terrain(s_layout, hilly);
    NBX::ProgressDisplay * before = NBX::Progress::setDisplay(&impatient);
    EXPECT_FALSE(terrain->createDynamicLightMap());
    NBX::Progress::setDisplay(before);
    EXPECT_EQ(impatient.title, "Calculating terrain shading");
    EXPECT_TRUE(impatient.hasFile);
    EXPECT_FALSE(TemporaryFolder::isMapped("zmt-clod-terrain-"));
}

TEST_F(ChunkedLodLightMapTest, LeavesNoFile) {
    const TemporaryFolder folder;
    const auto terrain = TestChunked::terrain(s_layout, hilly);
    const auto map = terrain->createStaticLightMap(0.25, {-3.0, 2.0, 1.0});
    EXPECT_TRUE(map);
    EXPECT_TRUE(folder.isEmpty());
}

TEST_F(ChunkedLodLightMapTest, AFullDiskIsReportedAndLeavesNoFile) {
    const TemporaryFolder folder;
    const auto terrain = TestChunked::terrain(s_layout, hilly);
    const FileSizeLimit limit(50);
    EXPECT_FALSE(terrain->createDynamicLightMap());
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(reports.last().level, 2);
    reports.clear();
    EXPECT_TRUE(folder.isEmpty());
}

TEST_F(ChunkedLodLightMapTest, WithoutAFolderForTemporaryFilesThereIsNone) {
    const auto terrain = TestChunked::terrain(s_layout, hilly);
    const EnvironmentVariable nowhere("TMPDIR", "/nonexistent");
    EXPECT_FALSE(terrain->createDynamicLightMap());
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(reports.last().level, 2);
    reports.clear();
}

} // namespace
