#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

#include <nbx/object/progress.h>
#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <support/silentserializationmanager.h>

#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/texture/terraintexture.h>

#include "chunkedfixture.h"

using NBX::Bounds;
using TestChunked::patch;
using ZMT::CORE::ChunkedLodTerrain;
using ZMT::CORE::GeoTransformation;
using Point = NBX::Vector3Base<double>;

namespace {

class RecordedProgress : public NBX::ProgressDisplay {
public:
    RecordedProgress() : before_(NBX::Progress::setDisplay(this)) {}
    ~RecordedProgress() override { NBX::Progress::setDisplay(before_); }
    void begin(const NBX::Progress & progress) override {
        titles.push_back(progress.title());
        totals.push_back(progress.totalValue());
    }
    /// Asks for an end, in vain.
    bool update(const NBX::Progress &) override {
        ++updates;
        return false;
    }
    void end(const NBX::Progress & progress) override { ends.push_back(progress.currentValue()); }

    std::vector<std::string> titles;
    std::vector<double> totals, ends;
    unsigned updates = 0;

private:
    NBX::ProgressDisplay * before_;
};

class ChunkedLodTerrainTest : public testing::Test {
protected:
    ~ChunkedLodTerrainTest() override {
        GeoTransformation::setNBXOrigin({});
        EXPECT_TRUE(reports.empty()) << reports;
    }

    static std::vector<unsigned short> stepsOf(const ChunkedLodTerrain & terrain) {
        const auto * lattice = terrain.impl();
        return {lattice->heights(), lattice->heights() + std::size_t(lattice->sizeX()) * lattice->sizeY()};
    }

    RecordedReports reports;
};

TEST_F(ChunkedLodTerrainTest, HeightsBecomeSteps) {
    const auto terrain =
        TestChunked::terrain({3, 2}, [](unsigned x, unsigned y) { return 100.0 + x + 10.0 * y; });
    EXPECT_EQ(stepsOf(*terrain), (std::vector<unsigned short>{0, 5461, 10922, 54612, 60073, 65534}));
    EXPECT_EQ(terrain->minHeight(), 100.0F);
    EXPECT_FLOAT_EQ(terrain->heightScale(), 12.0F / 65534.0F);
    EXPECT_FLOAT_EQ(terrain->wall(), 100.0F * 1.2F - 112.0F * 0.2F);
}

TEST_F(ChunkedLodTerrainTest, FlatGroundIsGivenARange) {
    const struct { double height, top; } cases[] = {{0.0, 1.0}, {200.0, 202.0}, {-200.0, -198.0}};
    for (const auto & c : cases) {
        SCOPED_TRACE(c.height);
        const auto terrain = TestChunked::terrain({4, 4}, [&](unsigned, unsigned) { return c.height; });
        EXPECT_EQ(stepsOf(*terrain), std::vector<unsigned short>(16, 0));
        EXPECT_FLOAT_EQ(terrain->minHeight(), float(c.height));
        EXPECT_FLOAT_EQ(terrain->heightScale(), float((c.top - c.height) / 65534.0));
        EXPECT_FLOAT_EQ(terrain->wall(), float(c.height * 1.2 - c.top * 0.2));
        EXPECT_EQ(terrain->rootThreshold(), 0);
    }
}

TEST_F(ChunkedLodTerrainTest, UndefinedCellsLieAtTheLowestHeight) {
    const auto terrain = TestChunked::terrain(
        {3, 1}, [](unsigned x, unsigned) { return x == 1 ? TestTerrain::s_undefined : 10.0 + x; });
    EXPECT_EQ(stepsOf(*terrain), (std::vector<unsigned short>{0, 0, 65534}));
    EXPECT_EQ(terrain->minHeight(), 10.0F);
}

TEST_F(ChunkedLodTerrainTest, FlatGroundWithUndefinedCellsKeepsItsHeight) {
    for (const double height : {0.0, 200.0}) {
        SCOPED_TRACE(height);
        const auto terrain = TestChunked::terrain({3, 3}, [&](unsigned x, unsigned y) {
            return x == 1 && y == 1 ? TestTerrain::s_undefined : height;
        });
        EXPECT_EQ(terrain->minHeight(), float(height));
        EXPECT_EQ(stepsOf(*terrain), std::vector<unsigned short>(9, 0));
        EXPECT_FLOAT_EQ(float(terrain->root()->boundingBox().getURB().y), float(height));
    }
}

TEST_F(ChunkedLodTerrainTest, GroundWithoutADefinedHeightIsReported) {
    const auto terrain =
        TestChunked::terrain({3, 3}, [](unsigned, unsigned) { return TestTerrain::s_undefined; });
    EXPECT_EQ(reports.count(0, L"minHeight < maxHeight", L"internal error"), 1U) << reports;
    reports.clear();
    EXPECT_EQ(stepsOf(*terrain), std::vector<unsigned short>(9, 0));
    EXPECT_EQ(terrain->wall(), -0.2F);
    EXPECT_TRUE(terrain->root());
}

TEST_F(ChunkedLodTerrainTest, ColumnsBeyondTheLargestSizeAreLeftOut) {
    // The highest cell is in the column that is left out, and still counts for the range.
    const auto terrain = TestChunked::terrain(
        {8194, 2}, [](unsigned x, unsigned y) { return x == 8193 ? 32767.0 : double(x + y); });
    EXPECT_EQ(terrain->impl()->sizeX(), 8193U);
    const auto steps = stepsOf(*terrain);
    ASSERT_EQ(steps.size(), 2U * 8193);
    EXPECT_EQ(steps[8192], 2 * 8192);
    EXPECT_EQ(steps[8193], 2 * 1) << "the first one of the second row";
    EXPECT_EQ(steps.back(), 2 * 8193);
}

TEST_F(ChunkedLodTerrainTest, RowsBeyondTheLargestSizeAreLeftOut) {
    const auto terrain = TestChunked::terrain(
        {2, 8194}, [](unsigned x, unsigned y) { return y == 8193 ? 32767.0 : double(x + y); });
    EXPECT_EQ(terrain->impl()->sizeY(), 8193U);
    const auto steps = stepsOf(*terrain);
    ASSERT_EQ(steps.size(), 2U * 8193);
    EXPECT_EQ(steps[1], 2 * 1);
    EXPECT_EQ(steps[2], 2 * 1) << "the first one of the second row";
    EXPECT_EQ(steps.back(), 2 * 8193);
}

TEST_F(ChunkedLodTerrainTest, InfiniteHeightsDoNoHarm) {
    const auto terrain = TestChunked::terrain({3, 3}, [](unsigned x, unsigned y) {
        return x == 1 && y == 1 ? std::numeric_limits<double>::infinity() : 0.25 * x;
    });
    EXPECT_EQ(stepsOf(*terrain),
              (std::vector<unsigned short>{0, 32767, 65534, 0, 65534, 65534, 0, 32767, 65534}));
    EXPECT_TRUE(std::isfinite(terrain->root()->boundingBox().getURB().y));
}

TEST_F(ChunkedLodTerrainTest, AMissingGridIsReported) {
    const NBX::SO<ChunkedLodTerrain> terrain(new ChunkedLodTerrain(nullptr));
    EXPECT_EQ(reports.count(0, L"grid_", L"no source grid"), 1U) << reports;
    reports.clear();
    EXPECT_FALSE(terrain->data());
    EXPECT_FALSE(terrain->root());
    EXPECT_FALSE(terrain->createStaticLightMap(0.5, {0, 1, 0}));
    EXPECT_FALSE(terrain->createDynamicLightMap());
}

TEST_F(ChunkedLodTerrainTest, ShowsItsProgressAndCannotBeCancelled) {
    const RecordedProgress progress;
    const auto terrain = TestChunked::terrain({7, 5}, TestTerrain::bumpy);
    EXPECT_EQ(progress.titles,
              (std::vector<std::string>{"converting height values", "calculating LOD parameters",
                                        "calculating LOD parameters"}));
    EXPECT_EQ(progress.totals, (std::vector<double>{5.0, 0.0, 1.0})) << "the second has no known length";
    EXPECT_EQ(progress.updates, 1U) << "a row, once in a tenth of a second";
    EXPECT_EQ(progress.ends, (std::vector<double>{5.0, 0.0, 0.0})) << "after all rows";
    EXPECT_EQ(stepsOf(*terrain).back(), 65534);
}

TEST_F(ChunkedLodTerrainTest, TheRootShowsAboutThreeThousandVertices) {
    const auto terrain = TestChunked::terrain({257, 257}, [](unsigned x, unsigned y) {
        return 300.0 * std::sin(x * 0.05) * std::cos(y * 0.07) + (x * 7919 + y * 104729) % 11;
    });
    const auto * lattice = terrain->impl();
    const unsigned short *begin = lattice->errors(), *end = begin + 257 * 257;
    const auto reaching = [&](unsigned error) {
        return std::count_if(begin, end, [&](unsigned short e) { return e >= error; });
    };
    EXPECT_GT(terrain->rootThreshold(), 0);
    EXPECT_GT(reaching(terrain->rootThreshold()), 2999);
    EXPECT_LE(reaching(terrain->rootThreshold() + 1U), 2999);
    EXPECT_EQ(patch(terrain->root())->threshold(), terrain->rootThreshold());
    EXPECT_DOUBLE_EQ(terrain->root()->approximationError(),
                     double(terrain->heightScale()) * terrain->rootThreshold());
}

/// Flat ground on which more and more cells are noisy, until just so many vertices have an error.
TEST_F(ChunkedLodTerrainTest, TheRootIsCoarsenedFromThreeThousandVerticesOn) {
    const auto withErrors = [](std::ptrdiff_t wanted) -> NBX::SO<ChunkedLodTerrain> {
        for (unsigned seed = 1; seed < 40; ++seed)
            for (unsigned noisy = 2950; noisy < 3400; ++noisy) {
                const auto terrain = TestChunked::terrain({65, 65}, [=](unsigned x, unsigned y) {
                    const unsigned cell = x + 65 * y, noise = (cell * 2654435761U + seed * 40503U) >> 16;
                    return cell == 4224 ? 65534.0 : cell == 4223 ? 0.0 : cell < noisy ? noise % 10 : 4.0;
                });
                const unsigned short * errors = terrain->impl()->errors();
                const auto count = 65 * 65 - std::count(errors, errors + 65 * 65, 0);
                if (count == wanted) return terrain;
                if (count > wanted) break;
            }
        return nullptr;
    };
    const auto below = withErrors(2999), beyond = withErrors(3000);
    ASSERT_TRUE(below && beyond);
    EXPECT_EQ(below->rootThreshold(), 0);
    EXPECT_EQ(beyond->rootThreshold(), 1) << "the least error";
}

TEST_F(ChunkedLodTerrainTest, SmallGroundIsShownWhole) {
    EXPECT_EQ(TestChunked::terrain({33, 33}, TestTerrain::bumpy)->rootThreshold(), 0);
}

TEST_F(ChunkedLodTerrainTest, TheRootLivesAsLongAsSomebodyHoldsIt) {
    const auto terrain = TestChunked::terrain({9, 5}, TestTerrain::bumpy);
    auto root = terrain->root();
    EXPECT_EQ(terrain->root(), root);
    EXPECT_EQ(patch(root)->size(), 9U);
    EXPECT_EQ(root->wall(), terrain->wall());
    const NBX::WO<ZMT::CORE::GeometryPatch> watched(root);
    root = nullptr;
    EXPECT_FALSE(watched);
    EXPECT_TRUE(terrain->root());
}

TEST_F(ChunkedLodTerrainTest, TheTerrainLivesAsLongAsItsRoot) {
    auto terrain = TestChunked::terrain({9, 9}, TestTerrain::bumpy);
    const auto root = terrain->root();
    const auto data = terrain->data();
    terrain = nullptr;
    EXPECT_EQ(root->data(), data);
    EXPECT_EQ(root->child(0)->children(), 4U);
}

TEST_F(ChunkedLodTerrainTest, BoxesAreInSceneCoordinates) {
    const auto terrain = TestChunked::terrain({9, 9, 1000.0, 2000.0, 10.0, 20.0},
                                              [](unsigned x, unsigned y) { return 50.0 + x + y; });
    GeoTransformation::setNBXOrigin({900.0, 40.0, 1900.0});
    const Bounds box = terrain->calculateBoundingBox(4, 0, 5, 0, -1000.0);
    const double tolerance = 1e-3;
    EXPECT_NEAR(box.getLLF().x, 140.0, tolerance);
    EXPECT_NEAR(box.getLLF().y, 50.0 + 4.0 - 40.0, tolerance);
    EXPECT_NEAR(box.getLLF().z, 100.0, tolerance);
    EXPECT_NEAR(box.getURB().x, 180.0, tolerance);
    EXPECT_NEAR(box.getURB().y, 50.0 + 12.0 - 40.0, tolerance);
    EXPECT_NEAR(box.getURB().z, 180.0, tolerance);
}

TEST_F(ChunkedLodTerrainTest, HeightsAreThoseOfTheGrid) {
    const auto grid = TestTerrain::grid({9, 9, 1000.0, 2000.0, 10.0, 20.0}, TestTerrain::bumpy);
    const NBX::SO<ChunkedLodTerrain> terrain(new ChunkedLodTerrain(grid.get()));
    EXPECT_EQ(terrain->data(), grid);
    const Point p(1035.0, 0.0, 2050.0);
    EXPECT_EQ(terrain->calculateHeight(p, false), grid->calculateHeight(p));
    EXPECT_EQ(terrain->getCellSize(), std::pair(10.0, 20.0));
    EXPECT_EQ(terrain->origin().x, 1000.0);
    EXPECT_EQ(terrain->boundingBox().getURB().z, 2160.0);
}

TEST_F(ChunkedLodTerrainTest, StoresItsGridAlone) {
    const auto terrain = TestChunked::terrain({9, 7, 1000.0, 2000.0, 10.0, 20.0}, TestTerrain::bumpy);
    const auto read = roundTrip(terrain);
    ASSERT_TRUE(read);
    EXPECT_EQ(RecordedAttributes::of(*terrain), (std::vector<std::string>{"grid"}));
    EXPECT_EQ(stepsOf(*read), stepsOf(*terrain));
    EXPECT_EQ(read->wall(), terrain->wall());
    EXPECT_EQ(read->root()->boundingBox(), terrain->root()->boundingBox());
    EXPECT_TRUE(terrain->isRegisteredForSerialization());
}

/// Holds a grid under its name, and nothing else.
class GridStream : public SilentSerializationManager {
public:
    explicit GridStream(const NBX::SO<ZMT::CORE::GridData> & grid) : grid_(grid) {}
    using SilentSerializationManager::attribute;
    bool isReading() const override { return true; }
    bool isWriting() const override { return false; }
    bool attribute(const char * name, NBX::SO<NBX::SharedObj> & value) override {
        if (std::string(name) != "grid") return false;
        value = grid_.get();
        return true;
    }

private:
    NBX::SO<ZMT::CORE::GridData> grid_;
};

TEST_F(ChunkedLodTerrainTest, ReadingIntoATerrainAgainMakesANewRoot) {
    const auto terrain = TestChunked::terrain({9, 7}, TestTerrain::bumpy);
    const auto before = terrain->root();
    GridStream stream(TestTerrain::grid({17, 33}, TestTerrain::bumpy));
    terrain->serialize(stream);
    EXPECT_EQ(patch(before)->size(), 9U) << "somebody holds it";
    ASSERT_NE(terrain->root(), before);
    EXPECT_EQ(patch(terrain->root())->size(), 33U);
}

TEST_F(ChunkedLodTerrainTest, ItsPartsAreVisited) {
    const auto visited = [](const ChunkedLodTerrain & terrain) {
        std::vector<NBX::Visitable *> children;
        terrain.acceptChildren(children);
        return std::vector<NBX::Visitable *>(children.begin(),
                                             std::remove(children.begin(), children.end(), nullptr));
    };
    const auto terrain = TestChunked::terrain({9, 7}, TestTerrain::bumpy);
    EXPECT_EQ(visited(*terrain), (std::vector<NBX::Visitable *>{terrain->data().get()}));
    const NBX::SO<ChunkedLodTerrain> empty(
        static_cast<ChunkedLodTerrain *>(ChunkedLodTerrain::newInstance()));
    EXPECT_TRUE(visited(*empty).empty());
}

} // namespace
