// Terrains that are written in parts: they have the bytes that one process writes, and what does not belong
// together is refused.

#include <zmt/core/terrain/geometry/grid/gridterrainplan.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>

#include <support/cancelingdisplay.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

#include "core/terrain/geometry/grid/creation/contenthash.h"
#include "core/terrain/geometry/grid/creation/terrainpartfile.h"
#include "core/terrain/geometry/grid/creation/terrainplanfile.h"
#include "functionband.h"
#include "writtenterrain.h"

namespace {

using namespace ZMT::CORE::GRID;
using NBX::SO;
using Bytes = std::vector<std::uint8_t>;

class GridTerrainPlanTest : public testing::Test {
protected:
    static std::string path(const std::string & name) {
        return std::string(std::getenv("TMPDIR")) + "/" + name;
    }
    std::string stamp() const { return stamped; }
    std::function<std::string()> stampFunction() const {
        return [this] { return stamp(); };
    }

    void plan(const SO<FunctionBand> & band, const std::string & name = "plan") {
        GridTerrainPlan::Origin origin{{"band"}, creation.oldTerrain ? "old" : "", stampFunction()};
        EXPECT_TRUE(GridTerrainPlan::write(path(name), creation, band, origin));
    }
    std::string part(const SO<FunctionBand> & band, unsigned k, unsigned n, unsigned threads = 2,
                     const std::string & planName = "plan") {
        std::string name = path(planName + "-" + std::to_string(k) + "-" + std::to_string(n));
        const GridTerrainPlan plan(path(planName));
        EXPECT_TRUE(plan.writePart(name, {k, n}, band, creation.oldTerrain, stampFunction(), threads));
        return name;
    }
    std::vector<std::string> parts(const SO<FunctionBand> & band, unsigned n, unsigned threads = 2) {
        std::vector<std::string> names;
        for (unsigned k = 1; k <= n; ++k)
            names.push_back(part(band, k, n, threads));
        return names;
    }
    Bytes joined(const std::vector<std::string> & names, unsigned threads = 2) {
        EXPECT_TRUE(GridTerrainPlan(path("plan")).join(names, path("joined.ztt"), threads));
        return NBX::File::contents(path("joined.ztt"));
    }
    Bytes whole(const SO<FunctionBand> & band) {
        EXPECT_TRUE(creation.run(NBX::StringUtils::Utf8String2WString(path("whole.ztt")), band));
        return NBX::File::contents(path("whole.ztt"));
    }
    /// For several numbers of parts and of threads.
    void compare(const SO<FunctionBand> & band, const std::vector<unsigned> & numbers = {1, 2, 3, 7}) {
        const Bytes expected = whole(band);
        plan(band);
        for (const unsigned n : numbers)
            for (const unsigned threads : {1U, 2U}) {
                SCOPED_TRACE(testing::Message() << n << " parts, " << threads << " threads");
                EXPECT_TRUE(expected == joined(parts(band, n, threads), threads));
            }
    }
    /// What is thrown, in a line.
    static std::string problemOf(const std::function<void()> & action) {
        try {
            action();
        } catch (const NBX::Exception & e) {
            EXPECT_EQ(std::string::npos, std::string(e.what()).find('\n'));
            return e.what();
        }
        return "";
    }
    std::string joinProblem(const std::vector<std::string> & names) {
        const std::string problem = problemOf([&] { joined(names); });
        EXPECT_FALSE(NBX::File::exists(path("joined.ztt")));
        return problem;
    }
    static void expectContains(const std::string & text, const std::string & part) {
        EXPECT_NE(std::string::npos, text.find(part)) << text;
    }

    const TemporaryFolder folder;
    RecordedReports reports;
    GridTerrainCreation creation;
    std::string stamped = "1";
};

double hillsWithBays(unsigned x, unsigned y) {
    const bool isSea = (x / 23 + y / 19) % 3 == 1 || (y > 40 && y < 70 && x > 30);
    return isSea ? FunctionBand::none : FunctionBand::hills(x, y);
}

TEST_F(GridTerrainPlanTest, PartsGiveTheBytesOfOneProcess) {
    const struct {
        unsigned cellsX, cellsY, level;
    } sizes[] = {{5, 5, 2}, {2, 9, 7}, {33, 17, 2}, {50, 41, 3}, {100, 133, 3}, {131, 90, 4}};
    for (const auto & size : sizes)
        for (const bool hasVoids : {false, true}) {
            SCOPED_TRACE(testing::Message() << size.cellsX << " " << size.cellsY << " " << hasVoids);
            creation.level = size.level;
            creation.resampling = hasVoids ? HeightResampling::Average : HeightResampling::Nearest;
            compare(new FunctionBand({size.cellsX, size.cellsY, 1000.0, -50.0, 2.0, 3.0},
                                     hasVoids ? hillsWithBays : FunctionBand::hills));
        }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(GridTerrainPlanTest, SparseHeightsGiveTheBytesOfOneProcess) {
    std::mt19937 random(11);
    for (int round = 0; round < 8; ++round) {
        const unsigned seed = random(), some = 20 + random() % 400;
        creation.level = 1 + random() % 3;
        SCOPED_TRACE(testing::Message() << "round " << round);
        compare(new FunctionBand(30 + random() % 60, 30 + random() % 60, [=](unsigned x, unsigned y) {
            std::minstd_rand mixed(seed + x * 7919 + y * 104729);
            mixed.discard(3);
            return mixed() % some == 0 ? double(mixed() % 1000) : FunctionBand::none;
        }));
    }
}

TEST_F(GridTerrainPlanTest, RowsOfMoreTilesThanFitAtOnceGiveTheBytesOfOneProcess) {
    creation.level = 1;
    compare(new FunctionBand(1100, 17, FunctionBand::hillsWithHoles));
}

TEST_F(GridTerrainPlanTest, MergedTerrainsGiveTheBytesOfOneProcess) {
    const Bytes old =
        writtenTerrain(new FunctionBand({70, 66, 1000.0, 2000.0, 10.0, 10.0}, hillsWithBays), 3);
    creation.oldTerrain = memoryTerrain(old);
    const struct {
        double minX, minY, size;
    } places[] = {{1080.0, 2290.0, 10.0}, {1203.0, 2107.0, 5.0}, {990.0, 1980.0, 40.0}};
    for (const auto & place : places) {
        SCOPED_TRACE(testing::Message() << place.size);
        compare(new FunctionBand({40, 31, place.minX, place.minY, place.size, place.size},
                                 FunctionBand::hillsWithHoles));
    }
}

TEST_F(GridTerrainPlanTest, LightMapAndCoordinateSystemAreThoseOfOneProcess) {
    creation.level = 3;
    creation.createShading = true;
    creation.lightDirection = {0.6, 0.8, 0.0};
    creation.ambientLight = 0.2;
    creation.wkt = "LOCAL_CS[\"here\",UNIT[\"metre\",1]]";
    const SO<FunctionBand> band(new FunctionBand(70, 40, FunctionBand::hills));
    compare(band, {3});
    EXPECT_EQ(NBX::File::contents(path("whole.prj")), NBX::File::contents(path("joined.prj")));
    // Without a word about it, what stands there stays.
    const auto wkt = std::exchange(creation.wkt, std::nullopt);
    compare(band, {2});
    EXPECT_TRUE(NBX::File::exists(path("joined.prj")));
    creation.wkt = wkt;
    creation.storesNormals = true;
    const Bytes lit = NBX::File::contents(path("joined.ztt"));
    compare(band, {3});
    EXPECT_NE(lit, NBX::File::contents(path("joined.ztt")));
    creation.createShading = false;
    creation.wkt = "";
    compare(band, {3});
    EXPECT_GT(lit.size(), NBX::File::contents(path("joined.ztt")).size());
    EXPECT_FALSE(NBX::File::exists(path("joined.prj")));
}

TEST_F(GridTerrainPlanTest, ThePlanKnowsWhereTheHeightsComeFrom) {
    creation.level = 2;
    const SO<FunctionBand> band(new FunctionBand(20, 20, FunctionBand::hills));
    EXPECT_TRUE(GridTerrainPlan::write(path("plan"), creation, band, {{"a.tif", "b c.tif"}, "old.ztt", {}}));
    const GridTerrainPlan plan(path("plan"));
    EXPECT_EQ((std::vector<std::string>{"a.tif", "b c.tif"}), plan.rasters());
    EXPECT_EQ("old.ztt", plan.oldTerrain());
    EXPECT_EQ(2U, plan.level());
    // 20 cells are 5 tiles of 4, below a root of 32.
    EXPECT_EQ(4U, plan.levels());
    EXPECT_EQ("", plan.wkt());
}

TEST_F(GridTerrainPlanTest, PlansAndPartsSayWhatTheyAre) {
    creation.level = 2;
    creation.wkt = "LOCAL_CS[\"here\"]";
    const SO<FunctionBand> band(new FunctionBand(20, 20, FunctionBand::hills));
    plan(band);
    const std::string second = part(band, 2, 3);
    EXPECT_EQ(GridTerrainPlan::K_Plan, GridTerrainPlan::kindOf(path("plan")));
    EXPECT_EQ(GridTerrainPlan::K_Part, GridTerrainPlan::kindOf(second));
    joined(parts(band, 1));
    EXPECT_EQ(GridTerrainPlan::K_Neither, GridTerrainPlan::kindOf(path("joined.ztt")));
    EXPECT_EQ(GridTerrainPlan::K_Neither, GridTerrainPlan::kindOf(path("nothing")));
    const GridTerrainPlan::Part told = GridTerrainPlan::describePart(second);
    EXPECT_EQ(2U, told.share.part);
    EXPECT_EQ(3U, told.share.parts);
    const GridTerrainPlan read(path("plan"));
    EXPECT_EQ(read.id(), told.plan);
    EXPECT_EQ(creation.wkt, read.wkt());
    creation.level = 3;
    plan(band, "other");
    EXPECT_NE(read.id(), GridTerrainPlan(path("other")).id());
    expectContains(problemOf([&] { GridTerrainPlan::describePart(path("plan")); }),
                   "is no part of a terrain");
}

/// The raster is read once for the plan, and once by all parts together but for the rows between them.
TEST_F(GridTerrainPlanTest, EachPartReadsItsShareAlone) {
    creation.level = 3;
    const SO<FunctionBand> band(new FunctionBand(200, 257, FunctionBand::hills));
    const std::uint64_t all = 200 * 257, compared = 2 * 25 * 16;
    plan(band);
    EXPECT_LE(band->cellsRead, all + compared);
    for (unsigned k = 1; k <= 4; ++k) {
        band->cellsRead = 0;
        part(band, k, 4);
        EXPECT_LE(band->cellsRead, all / 4 + 40 * 200 + compared) << k;
    }
}

TEST_F(GridTerrainPlanTest, SharesFollowWhatIsDefined) {
    creation.level = 4;
    // Three quarters of the rows are empty.
    const SO<FunctionBand> band(new FunctionBand(400, 400, [](unsigned x, unsigned y) {
        return y < 300 ? double(FunctionBand::none) : FunctionBand::hills(x, y);
    }));
    plan(band);
    std::vector<std::uint64_t> sizes;
    for (unsigned k = 1; k <= 4; ++k)
        sizes.push_back(NBX::File::contents(part(band, k, 4)).size());
    for (const std::uint64_t size : sizes)
        EXPECT_LT(size, 2 * sizes[3]);
    EXPECT_GT(4 * sizes[0], sizes[3]);
}

TEST_F(GridTerrainPlanTest, MissingPartsAreNamed) {
    creation.level = 2;
    const SO<FunctionBand> band(new FunctionBand(40, 40, FunctionBand::hills));
    plan(band);
    const std::vector<std::string> all = parts(band, 3);
    expectContains(joinProblem({all[0], all[2]}), "part 2/3 is missing");
    expectContains(joinProblem({all[1], all[2]}), "part 1/3 is missing");
    expectContains(joinProblem({all[1], all[0]}), "part 3/3 is missing");
    expectContains(joinProblem({}), "no parts");
}

TEST_F(GridTerrainPlanTest, PartsMayComeInAnyOrderButOnce) {
    creation.level = 2;
    const SO<FunctionBand> band(new FunctionBand(40, 40, FunctionBand::hills));
    const Bytes expected = whole(band);
    plan(band);
    const std::vector<std::string> all = parts(band, 3);
    const std::string problem = joinProblem({all[0], all[1], all[2], all[1]});
    expectContains(problem, "part 2 once more");
    expectContains(problem, all[1]);
    expectContains(joinProblem({all[0], all[1], all[1]}), "once more");
    expectContains(joinProblem({all[2], all[1], all[0], all[2]}), "part 3 once more");
    EXPECT_TRUE(expected == joined({all[2], all[0], all[1]}));
}

TEST_F(GridTerrainPlanTest, PartsOfOtherSharesAreRefused) {
    creation.level = 2;
    const SO<FunctionBand> band(new FunctionBand(40, 40, FunctionBand::hills));
    plan(band);
    const std::string problem = joinProblem({part(band, 1, 2), part(band, 2, 3)});
    expectContains(problem, "is one of 3 parts");
    expectContains(problem, "one of 2");
}

TEST_F(GridTerrainPlanTest, PartsOfOtherOptionsAreRefused) {
    creation.level = 2;
    const SO<FunctionBand> band(new FunctionBand(40, 40, FunctionBand::hills));
    plan(band);
    std::vector<std::string> mixed = parts(band, 2);
    const GridTerrainCreation before = creation;
    const std::function<void(GridTerrainCreation &)> changes[] = {
        [](auto & c) { c.level = 3; },
        [](auto & c) { c.resampling = HeightResampling::Average; },
        [](auto & c) { c.createShading = true; },
        [](auto & c) { c.storesNormals = true; },
        [](auto & c) { c.ambientLight = 0.9; },
        [](auto & c) {
            c.lightDirection = {0.0, 0.8, 0.6};
        },
        [](auto & c) { c.wkt = "LOCAL_CS[\"there\",UNIT[\"metre\",1]]"; },
        [](auto & c) { c.wkt = ""; }};
    for (const auto & change : changes) {
        creation = before;
        change(creation);
        plan(band, "other");
        mixed[1] = part(band, 2, 2, 2, "other");
        const std::string problem = joinProblem(mixed);
        expectContains(problem, "other options");
        expectContains(problem, mixed[1]);
    }
}

TEST_F(GridTerrainPlanTest, PartsOfAChangedRasterAreRefused) {
    creation.level = 2;
    const SO<FunctionBand> band(new FunctionBand(40, 40, FunctionBand::hills));
    const std::vector<SO<FunctionBand>> others = {
        new FunctionBand(41, 40, FunctionBand::hills),
        new FunctionBand(40, 39, FunctionBand::hills),
        new FunctionBand({40, 40, 5.0, 0.0, 1.0, 1.0}, FunctionBand::hills),
        new FunctionBand({40, 40, 0.0, 5.0, 1.0, 1.0}, FunctionBand::hills),
        new FunctionBand({40, 40, 0.0, 0.0, 2.0, 1.0}, FunctionBand::hills),
        new FunctionBand({40, 40, 0.0, 0.0, 1.0, 2.0}, FunctionBand::hills),
        new FunctionBand(40, 40, [](unsigned x, unsigned y) { return FunctionBand::hills(x, y) + (x > 20); }),
        new FunctionBand(40, 40,
                         [](unsigned x, unsigned y) { return FunctionBand::hills(x, y) + (y > 20); })};
    for (const SO<FunctionBand> & other : others) {
        stamped = "1";
        plan(band);
        const std::string first = part(band, 1, 2);
        const GridTerrainPlan opened(path("plan"));
        const std::string problem = problemOf([&] {
            opened.writePart(path("p2"), {2, 2}, other, nullptr, stampFunction(), 1);
        });
        expectContains(problem, "changed since the plan was made");
        EXPECT_FALSE(NBX::File::exists(path("p2")));
        // With a plan of its own it is foreign.
        plan(other, "other");
        expectContains(joinProblem({first, part(other, 2, 2, 1, "other")}), "another raster");
    }
    // By its stamp.
    stamped = "2";
    expectContains(problemOf([&] { part(band, 2, 2); }), "changed since");
    plan(band, "other");
    expectContains(joinProblem({part(band, 1, 2, 1, "other"), part(band, 2, 2, 1, "other")}),
                   "another raster");
}

TEST_F(GridTerrainPlanTest, ARasterThatChangesMeanwhileIsRefused) {
    creation.level = 2;
    const SO<FunctionBand> band(new FunctionBand(40, 40, FunctionBand::hills));
    plan(band);
    int asked = 0;
    const GridTerrainPlan opened(path("plan"));
    const std::string problem = problemOf([&] {
        opened.writePart(
            path("p1"), {1, 1}, band, nullptr, [&] { return std::to_string(++asked); }, 1);
    });
    expectContains(problem, "changed since");
    EXPECT_EQ(2, asked);
    EXPECT_FALSE(NBX::File::exists(path("p1")));
    const GridTerrainPlan::Origin origin{{"band"}, "", [&] { return std::to_string(++asked); }};
    expectContains(problemOf([&] { GridTerrainPlan::write(path("p"), creation, band, origin); }),
                   "changed while it was read");
    EXPECT_FALSE(NBX::File::exists(path("p")));
}

TEST_F(GridTerrainPlanTest, AnotherOldTerrainIsRefused) {
    const auto old = [](double height) {
        return memoryTerrain(writtenTerrain(new FunctionBand({33, 33, 0.0, 0.0, 1.0, 1.0},
                                                             [height](unsigned x, unsigned y) {
                                                                 return FunctionBand::hills(x, y) +
                                                                        height * (x == 0);
                                                             }),
                                            2));
    };
    const SO<FunctionBand> band(new FunctionBand(20, 20, FunctionBand::hills));
    creation.oldTerrain = old(0.0);
    plan(band);
    creation.oldTerrain = old(1.0);
    expectContains(problemOf([&] { part(band, 1, 1); }), "changed since");
    creation.oldTerrain = nullptr;
    expectContains(problemOf([&] { part(band, 1, 1); }), "changed since");
}

TEST_F(GridTerrainPlanTest, ARasterWithoutHeightsHasNoPlan) {
    const SO<FunctionBand> band(
        new FunctionBand(40, 40, [](unsigned, unsigned) { return double(FunctionBand::none); }));
    const std::string problem = problemOf([&] { plan(band); });
    expectContains(problem, "no height at all");
    expectContains(problem, "band");
    EXPECT_TRUE(folder.isEmpty());
}

TEST_F(GridTerrainPlanTest, ARasterThatIsTooNarrowIsNamed) {
    const std::string problem = problemOf([&] { plan(new FunctionBand(1, 9, FunctionBand::hills)); });
    expectContains(problem, "one cell wide");
    expectContains(problem, "band");
    EXPECT_TRUE(folder.isEmpty());
}

TEST_F(GridTerrainPlanTest, WhatIsCancelledOrFailsLeavesNothing) {
    creation.level = 2;
    const SO<FunctionBand> band(new FunctionBand(60, 60, FunctionBand::hills));
    GridTerrainPlan::Origin origin;
    CancelingDisplay display;
    NBX::Progress::setDisplay(&display);
    EXPECT_FALSE(GridTerrainPlan::write(path("plan"), creation, band, origin));
    NBX::Progress::setDisplay(nullptr);
    EXPECT_TRUE(folder.isEmpty());
    EXPECT_TRUE(GridTerrainPlan::write(path("plan"), creation, band, origin));
    const GridTerrainPlan opened(path("plan"));
    NBX::Progress::setDisplay(&display);
    EXPECT_FALSE(opened.writePart(path("p"), {1, 1}, band, nullptr, {}, 2));
    NBX::Progress::setDisplay(nullptr);
    EXPECT_FALSE(NBX::File::exists(path("p")));
    band->failsAfter = band->cellsRead + 2000;
    expectContains(problemOf([&] { opened.writePart(path("p"), {1, 1}, band, nullptr, {}, 2); }), "fire");
    EXPECT_FALSE(NBX::File::exists(path("p")));
    band->failsAfter = UINT64_MAX;
    EXPECT_TRUE(opened.writePart(path("p"), {1, 1}, band, nullptr, {}, 2));
    NBX::Progress::setDisplay(&display);
    EXPECT_FALSE(opened.join({path("p")}, path("joined.ztt"), 2));
    NBX::Progress::setDisplay(nullptr);
    EXPECT_FALSE(NBX::File::exists(path("joined.ztt")));
}

/// Every shorter plan and part, and every one with another byte, is refused in a line or does no harm.
TEST_F(GridTerrainPlanTest, DamagedPlansAndPartsAreRefused) {
    creation.level = 2;
    const SO<FunctionBand> band(new FunctionBand(20, 17, FunctionBand::hills));
    plan(band);
    const std::vector<std::string> all = parts(band, 2);
    const auto put = [](const std::string & name, const Bytes & bytes) {
        // Some file systems bring a file to the disk at once when it is cut and written again.
        std::filesystem::remove(name);
        std::ofstream(name, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
    };
    const auto expectRefused = [&](const std::string & name, const std::function<void()> & action,
                                   std::size_t checkedBytes) {
        const Bytes bytes = NBX::File::contents(name);
        for (std::size_t size = 0; size < bytes.size(); size += size < 300 ? 7 : 197) {
            put(name, Bytes(bytes.begin(), bytes.begin() + std::ptrdiff_t(size)));
            EXPECT_NE("", problemOf(action)) << size;
        }
        Bytes longer = bytes;
        longer.resize(bytes.size() + 16);
        put(name, longer);
        EXPECT_NE("", problemOf(action));
        for (std::size_t at = 0; at < std::min(checkedBytes, bytes.size()); at += at < 64 ? 1 : 37) {
            Bytes changed = bytes;
            changed[at] ^= 0x15;
            put(name, changed);
            EXPECT_NE("", problemOf(action)) << at;
        }
        put(name, bytes);
        EXPECT_EQ("", problemOf(action));
    };
    expectRefused(
        all[1], [&] { joined(all); }, SIZE_MAX);
    // The heights of coarser levels are looked at when they are needed, and up to 15 zeros before never.
    const std::size_t size = NBX::File::contents(path("plan")).size();
    const std::size_t levels = (11 * 9 + 6 * 5 + 4 * 3) * sizeof(float) + (9 + 5 + 3) * sizeof(std::uint64_t);
    expectRefused(
        path("plan"), [&] { const GridTerrainPlan opened(path("plan")); }, size - levels - 16);
    const Bytes sound = NBX::File::contents(path("plan"));
    for (std::size_t at = size - levels; at < size; ++at) {
        Bytes changed = sound;
        changed[at] ^= 0x15;
        put(path("plan"), changed);
        const std::string problem = problemOf([&] { part(band, 1, 1); });
        expectContains(problem, "heights in it are damaged; make it anew");
        expectContains(problem, path("plan"));
    }
    put(path("plan"), sound);
    expectContains(problemOf([&] { const GridTerrainPlan opened(all[0]); }), "is no plan");
    expectContains(problemOf([&] { joined({path("plan")}); }), "is no part");
    expectContains(problemOf([&] { joined({path("none")}); }), path("none"));
}

/// Numbers that no plan has, but whose hash is right.
TEST_F(GridTerrainPlanTest, ForgedPlansAreRefused) {
    creation.level = 2;
    plan(new FunctionBand(20, 17, FunctionBand::hills));
    NBX::File file(path("plan"), NBX::WM_Update);
    const TerrainPlanFile sound = TerrainPlanFile::read(file);
    const std::function<void(TerrainPlanFile &)> changes[] = {
        [](auto & p) { p.header.tileLevel = 8; },
        [](auto & p) { p.header.treeDepth = 30; },
        [](auto & p) { p.header.treeDepth = UINT32_MAX; },
        [](auto & p) { p.area.maxX = 33; },
        [](auto & p) { p.area.maxY = UINT32_MAX; },
        [](auto & p) { p.area.minX = 20; },
        [](auto & p) { p.sourceArea.maxX = 20; },
        [](auto & p) { p.sourceArea.minY = 17; },
        [](auto & p) { p.sourceDepth = 4; },
        [](auto & p) { p.header.cellSizeX = 0.0; },
        [](auto & p) { p.header.cellSizeY = -1.0; },
        [](auto & p) { p.header.heightScale = HUGE_VAL; },
        [](auto & p) { p.header.minHeight = NAN; },
        [](auto & p) { p.header.originX = NAN; },
        [](auto & p) { p.header.originY = HUGE_VAL; },
        [](auto & p) { p.ambientLight = NAN; },
        [](auto & p) { p.light[0] = NAN; },
        [](auto & p) { p.light[2] = HUGE_VAL; },
        [](auto & p) { p.resampling = static_cast<HeightResampling>(2); },
        [](auto & p) { p.work.push_back(1); },
        [](auto & p) { p.work.pop_back(); }};
    int number = 0;
    for (const auto & change : changes) {
        TerrainPlanFile forged = sound;
        change(forged);
        forged.write(file);
        EXPECT_NE("", problemOf([&] { TerrainPlanFile::read(file); })) << number++;
    }
    sound.write(file);
    EXPECT_EQ(sound.id(), TerrainPlanFile::read(file).id());
}

/// A plan with an old terrain may claim heights beyond its own, but no more tiles than its parts have.
TEST_F(GridTerrainPlanTest, AForgedWidthTakesNoMemory) {
    const SO<FunctionBand> band(new FunctionBand(2, 5, FunctionBand::hills));
    plan(band);
    const std::string name = part(band, 1, 1);
    {
        NBX::File file(path("plan"), NBX::WM_Update);
        TerrainPlanFile forged = TerrainPlanFile::read(file);
        ASSERT_EQ(0U, forged.header.tileLevel);
        forged.header.treeDepth = 31;
        forged.area.maxX = 0x80000000;
        forged.work.resize(forged.rows().rows(0).count(), 1);
        file.resize(forged.levelsStart() +
                    HeightLevels(forged.sourceArea, forged.header.treeDepth).guardedBytes());
        forged.write(file);
        NBX::File partFile(name, NBX::WM_Update);
        TerrainPartHeader header{};
        partFile.read(&header, sizeof header);
        header.plan = forged.id();
        header.seal();
        partFile.seek(0);
        partFile.write(&header, sizeof header);
    }
    const std::string problem = joinProblem({name});
    expectContains(problem, "the part is damaged");
    expectContains(problem, name);
}

/// Notes how far the parts are joined.
class JoinDisplay : public NBX::ProgressDisplay {
public:
    JoinDisplay() : before_(NBX::Progress::setDisplay(this)) {}
    ~JoinDisplay() override { NBX::Progress::setDisplay(before_); }
    JoinDisplay(const JoinDisplay &) = delete;
    JoinDisplay & operator=(const JoinDisplay &) = delete;

    void begin(const NBX::Progress &) override {}
    bool update(const NBX::Progress & progress) override {
        if (progress.title() != "joining the parts") return true;
        values.push_back(progress.currentValue());
        // Progress that is too quick is not shown.
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
        return true;
    }
    void end(const NBX::Progress &) override {}

    std::vector<double> values;

private:
    NBX::ProgressDisplay * before_;
};

TEST_F(GridTerrainPlanTest, JoiningShowsTheRowsOfAllPartsBefore) {
    creation.level = 2;
    const SO<FunctionBand> band(new FunctionBand(17, 17, FunctionBand::hills));
    plan(band);
    const std::vector<std::string> all = parts(band, 3);
    JoinDisplay display;
    joined(all);
    EXPECT_EQ((std::vector<double>{1.0, 2.0, 3.0, 4.0, 4.0}), display.values);
}

/// Entries of a part that no part has, but whose hash is right.
TEST_F(GridTerrainPlanTest, ForgedPartsAreRefused) {
    creation.level = 2;
    const SO<FunctionBand> band(new FunctionBand(9, 9, FunctionBand::hills));
    plan(band);
    const std::string name = part(band, 1, 1);
    const Bytes bytes = NBX::File::contents(name);
    // A row of two tiles: its bytes, its hash, two entries of nine numbers.
    const std::size_t head = sizeof(TerrainPartHeader), entries = head + 16, blocks = entries + 72;
    const auto forge = [&](unsigned field, std::uint32_t value) {
        Bytes forged = bytes;
        std::memcpy(forged.data() + entries + 4 * field, &value, 4);
        std::uint64_t size = 0;
        std::memcpy(&size, forged.data() + head, 8);
        ContentHash hash;
        hash.add(forged.data() + entries, 72);
        hash.add(forged.data() + blocks, size);
        const std::uint64_t sum = hash.value();
        std::memcpy(forged.data() + head + 8, &sum, 8);
        std::ofstream(name, std::ios::binary)
            .write(reinterpret_cast<const char *>(forged.data()), std::streamsize(forged.size()));
        return problemOf([&] { joined({name}); });
    };
    std::uint32_t stored = 0, minX = 0;
    std::memcpy(&stored, bytes.data() + entries + 4, 4);
    std::memcpy(&minX, bytes.data() + entries + 12, 4);
    EXPECT_EQ("", forge(1, stored));
    EXPECT_EQ(0U, minX);
    for (const auto & [field, value] : std::vector<std::pair<unsigned, std::uint32_t>>{{0, 0},
                                                                                       {0, 1},
                                                                                       {0, 2},
                                                                                       {0, UINT32_MAX},
                                                                                       {1, 0},
                                                                                       {1, stored + 1},
                                                                                       {1, UINT32_MAX},
                                                                                       {3, 99},
                                                                                       {4, 5},
                                                                                       {5, 0},
                                                                                       {6, 5},
                                                                                       {7, UINT32_MAX},
                                                                                       {8, 65536},
                                                                                       {12, 3}})
        expectContains(forge(field, value), "damaged");
}

} // namespace
