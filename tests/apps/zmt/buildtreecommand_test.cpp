#include <algorithm>
#include <cstdlib>
#include <random>

#include <gtest/gtest.h>

#include "datafiles.h"
#include "support/imagecompare.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

class BuildTreeTest : public testing::Test {
protected:
    RunResult zmt(std::vector<std::string> arguments, const RunLimits & limits = {}) const {
        return runProcess(ZMT_EXECUTABLE, arguments, folder, limits);
    }
    RunResult build(const std::string & heights, const std::vector<std::string> & more = {},
                    const RunLimits & limits = {}) const {
        std::vector<std::string> arguments = {"build", "tree", heights, tree};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return zmt(arguments, limits);
    }
    NBX::SO<NBX::Image> pictureOf(const std::string & terrain, const std::vector<std::string> & more) const {
        std::vector<std::string> arguments = {"render",  "--terrain",    terrain,
                                              "--image", s_everestImage, "--size",
                                              "160x100", "--out",        folder.out("p.png")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const RunResult run = zmt(arguments);
        EXPECT_EQ(0, run.status) << run.errors;
        EXPECT_TRUE(run.errorLines().empty()) << run.errors;
        return readPng(folder.out("p.png"));
    }
    /// One line that tells what is wrong.
    static void expectFailure(const RunResult & run, int status, const std::string & word) {
        EXPECT_EQ(status, run.status) << run.errors;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(std::string::npos, run.errors.find(word)) << run.errors;
    }

    RunFolder folder;
    const std::string tree = folder.out("a.nbx");
};

TEST_F(BuildTreeTest, LooksLikeTheTreeThatIsBuiltForThePicture) {
    const std::vector<std::string> ways[] = {
        {}, {"--max-vertices", "500"}, {"--fill-voids"}, {"--breaklines", s_glaciers}};
    for (const std::vector<std::string> & way : ways) {
        SCOPED_TRACE(way.empty() ? "plain" : way[0]);
        const RunResult run = build(s_everestHeights, way);
        ASSERT_EQ(0, run.status) << run.errors;
        std::vector<std::string> fromHeights = way;
        fromHeights.insert(fromHeights.end(), {"--method", "tree"});
        const auto picture = pictureOf(tree, {}), expected = pictureOf(s_everestHeights, fromHeights);
        ASSERT_TRUE(picture && expected);
        // Stored boxes reach down to the wall, so that finer patches may be chosen.
        EXPECT_LT(compareImages(*picture, *expected).share, 0.002);
    }
}

TEST_F(BuildTreeTest, PicksTheSamePlaces) {
    ASSERT_EQ(0, build(s_everestHeights).status);
    const RunResult built = zmt({"pick", "--terrain", tree, "640,400"});
    EXPECT_EQ(0, built.status) << built.errors;
    EXPECT_EQ(zmt({"pick", "--terrain", s_everestHeights, "640,400"}).output, built.output);
}

TEST_F(BuildTreeTest, TellsWhatItHolds) {
    ASSERT_EQ(0, build(s_everestHeights, {"--max-vertices", "321", "--seed", "5"}).status);
    const RunResult run = zmt({"info", tree});
    EXPECT_EQ(0, run.status) << run.errors;
    for (const char * word :
         {"built terrain", "321", "seed 5", "metre", "system:     WGS 84 / UTM zone 45N", "heights:"})
        EXPECT_NE(std::string::npos, run.output.find(word)) << word << "\n" << run.output;
}

TEST_F(BuildTreeTest, IsTheSameForAnyNumberOfThreads) {
    ASSERT_EQ(0, build(s_everestHeights, {"--threads", "1"}).status);
    const std::string alone = readWhole(tree);
    ASSERT_EQ(0, build(s_everestHeights, {"--threads", "3"}).status);
    EXPECT_TRUE(alone == readWhole(tree));
}

TEST_F(BuildTreeTest, OptionsOfTheBuildingAreNoneOfItsUse) {
    ASSERT_EQ(0, build(s_everestHeights).status);
    const std::vector<std::string> options[] = {{"--max-vertices", "500"},
                                                {"--threads", "2"},
                                                {"--breaklines", s_glaciers},
                                                {"--fill-voids"},
                                                {"--method", "chunked"}};
    for (const std::vector<std::string> & option : options) {
        SCOPED_TRACE(option[0]);
        std::vector<std::string> arguments = {"render", "--terrain", tree, "--out", folder.out("p.png")};
        arguments.insert(arguments.end(), option.begin(), option.end());
        expectFailure(zmt(arguments), 2, option[0]);
    }
    expectFailure(zmt({"pick", "--terrain", tree, "--fill-voids", "1,1"}), 2, "--fill-voids");
    expectFailure(zmt({"lod", "--terrain", tree, "--report", folder.out("r.json")}), 2, "built");
    expectFailure(zmt({"build", "tree", tree, folder.out("b.nbx")}), 2, "built");
    EXPECT_EQ(std::vector<std::string>{"a.nbx"}, folder.results());
}

TEST_F(BuildTreeTest, DamagedFilesAreTold) {
    SmallGeoTiff slope{20, 15};
    for (unsigned i = 0; i < 300; ++i)
        slope.heights.push_back(float(i % 37));
    ASSERT_EQ(0, build(folder.write("t.tif", slope.encode())).status);
    const std::string good = readWhole(tree);
    std::mt19937 random(3);
    for (int i = 0; i < 25; ++i) {
        std::string bad = good;
        if (i % 2)
            bad.resize(8 + random() % (good.size() - 8));
        else
            bad.replace(random() % (good.size() - 20), 20, 20, char(random()));
        const std::string path = folder.write("bad.nbx", bad);
        const RunResult run =
            zmt({"render", "--terrain", path, "--size", "40x30", "--out", folder.out("p.png")});
        // Numbers may have changed that mean no harm.
        if (i % 2 || run.status != 0) expectFailure(run, 1, path);
    }
    const std::string image = folder.write("other.nbx", std::string("NBXO\r\n\x1A\n", 8) + "garbage");
    expectFailure(zmt({"info", image}), 1, image);
}

TEST_F(BuildTreeTest, AnInterruptOrAFullDiskLeavesNothing) {
    const RunResult interrupted = build(ZMT_DATA_DIR "/everest_srtm3.tif", {}, {0, folder.path() / "out"});
    EXPECT_EQ(1, interrupted.status);
    EXPECT_EQ(std::vector<std::string>{"zmt: cancelled"}, interrupted.errorLines()) << interrupted.errors;
    EXPECT_EQ(std::vector<std::string>(), folder.results());
    expectFailure(build(s_everestHeights, {}, {4096, {}}), 1, "a.nbx");
    EXPECT_EQ(std::vector<std::string>(), folder.results());
}

TEST_F(BuildTreeTest, WrongUseIsTold) {
    expectFailure(build(s_everestHeights, {"--max-vertices", "49"}), 2, "--max-vertices");
    expectFailure(build(s_everestHeights, {"--threads", "0"}), 2, "--threads");
    expectFailure(build(folder.in("none.tif")), 1, "none.tif");
    expectFailure(zmt({"build", "tree", s_everestHeights, folder.out("none/a.nbx")}), 1, "none/a.nbx");
    EXPECT_EQ(std::vector<std::string>(), folder.results());
}

} // namespace
