// Streaming terrains that several runs of the program write in parts.

#include <filesystem>

#include <gtest/gtest.h>

#include <nbx/object/stringutils.h>

#include "datafiles.h"
#include "support/nginx.h"
#include "support/scriptedhttpserver.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

namespace fs = std::filesystem;

class TerrainParts : public ::testing::Test {
protected:
    using Words = std::vector<std::string>;

    RunResult zmt(Words words, const RunLimits & limits = {}) const {
        words.insert(words.begin(), {"build", "terrain"});
        return runProcess(ZMT_EXECUTABLE, words, folder, limits);
    }
    void run(const Words & words) const {
        const RunResult result = zmt(words);
        EXPECT_EQ(0, result.status) << result.errors;
    }
    std::string partName(unsigned k, unsigned n) const {
        return folder.out("p" + std::to_string(k) + "-" + std::to_string(n));
    }
    static std::string share(unsigned k, unsigned n) { return std::to_string(k) + "/" + std::to_string(n); }

    void plan(const Words & rasters, const Words & options = {}) const {
        Words words = rasters;
        words.insert(words.end(), options.begin(), options.end());
        words.insert(words.end(), {"--plan", folder.out("plan")});
        run(words);
    }
    std::string part(unsigned k, unsigned n, const std::string & threads = "2") const {
        run({partName(k, n), "--part", share(k, n), "--plan", folder.out("plan"), "--threads", threads});
        return partName(k, n);
    }
    Words joining(unsigned n) const {
        Words words = {"--join"};
        for (unsigned k = n; k > 0; --k)
            words.push_back(partName(k, n));
        words.insert(words.end(), {folder.out("joined.ztt"), "--plan", folder.out("plan")});
        return words;
    }
    /// Parts give what one process writes.
    void compare(const Words & rasters, const Words & options, const std::vector<unsigned> & numbers) const {
        Words words = rasters;
        words.push_back(folder.out("whole.ztt"));
        words.insert(words.end(), options.begin(), options.end());
        run(words);
        plan(rasters, options);
        const std::string expected = readWhole(folder.out("whole.ztt"));
        EXPECT_GT(expected.size(), 10000U);
        for (const unsigned n : numbers) {
            for (unsigned k = 1; k <= n; ++k)
                part(k, n, k % 2 == 0 ? "1" : "2");
            run(joining(n));
            EXPECT_TRUE(expected == readWhole(folder.out("joined.ztt"))) << n;
            EXPECT_EQ(readWhole(folder.out("whole.prj")), readWhole(folder.out("joined.prj")));
        }
    }
    /// One line that has `text`; nothing is written.
    void expectProblem(const Words & words, int status, const std::string & text) const {
        const std::vector<std::string> before = folder.results();
        const RunResult result = zmt(words);
        EXPECT_EQ(status, result.status) << result.errors;
        EXPECT_EQ(1U, result.errorLines().size()) << result.errors;
        EXPECT_NE(std::string::npos, result.errors.find(text)) << result.errors;
        EXPECT_EQ(before, folder.results());
    }
    static SmallGeoTiff slope(unsigned width, unsigned height) {
        SmallGeoTiff tiff{width, height};
        for (unsigned line = 0; line < height; ++line)
            for (unsigned column = 0; column < width; ++column)
                tiff.heights.push_back(float(800.0 + 4.0 * column + 7.5 * (line * line % 31)));
        return tiff;
    }

    RunFolder folder;
};

TEST_F(TerrainParts, ARasterWithVoidsAndALightMap) {
    compare({s_data + "everest_heights.tif"}, {"--level", "5"}, {1, 2, 3, 7});
}

TEST_F(TerrainParts, ARasterInDegrees) {
    compare({s_data + "everest_30m_heights.tif"}, {"--level", "5", "--lighting", "none"}, {2, 7});
}

TEST_F(TerrainParts, SeveralRastersOnOtherLattices) {
    const std::string first = folder.write("first.tif", slope(140, 90).encode());
    SmallGeoTiff content = slope(100, 120);
    content.west += 1500.0;
    content.north -= 777.0;
    content.cell = 40.0;
    const std::string second = folder.write("second.tif", content.encode());
    compare({first, second}, {"--level", "4", "--resampling", "average", "--lighting", "none"}, {3, 7});
}

TEST_F(TerrainParts, OneThatIsMergedOverAnOldTerrain) {
    const std::string old = folder.out("old.ztt");
    run({folder.write("old.tif", slope(140, 90).encode()), old, "--level", "4", "--lighting", "none"});
    SmallGeoTiff content = slope(50, 70);
    content.west += 800.0;
    content.cell = 16.0;
    compare({folder.write("new.tif", content.encode())}, {"--merge", old, "--lighting", "normals"}, {1, 3});
}

TEST_F(TerrainParts, OneThatIsMergedOverAnOldTerrainOnAServer) {
    const std::string old = folder.out("old.ztt");
    run({folder.write("old.tif", slope(140, 90).encode()), old, "--level", "4", "--lighting", "none"});
    ScriptedHttpServer server;
    server.setFile("/old.ztt", readWhole(old));
    server.setFile("/old.prj", readWhole(folder.out("old.prj")));
    SmallGeoTiff content = slope(50, 70);
    content.west += 800.0;
    const std::string raster = folder.write("new.tif", content.encode());
    const std::string url = NBX::StringUtils::WString2Utf8String(server.url("/old.ztt"));
    compare({raster}, {"--merge", url, "--lighting", "none"}, {1, 2});
    EXPECT_GT(server.requests(), 0U);

    const RunResult planned = zmt({raster, "--merge", "http://me:secret@" + url.substr(7), "--lighting",
                                   "none", "--plan", folder.out("plan")});
    EXPECT_EQ(0, planned.status) << planned.errors;
    EXPECT_NE(std::string::npos, planned.errors.find(url + ": the plan keeps neither user name nor password"))
        << planned.errors;
    EXPECT_EQ(std::string::npos, planned.errors.find("secret")) << planned.errors;
    EXPECT_EQ(std::string::npos, readWhole(folder.out("plan")).find("secret"));
    EXPECT_NE(std::string::npos, readWhole(folder.out("plan")).find(url));
    part(1, 1);
}

TEST_F(TerrainParts, NoLoginIsStoredWithTheNamesOfRasters) {
    if (!Nginx::isInstalled()) GTEST_SKIP() << "nginx is not installed";
    Nginx server;
    const std::string content = slope(50, 70).encode();
    server.write("new.tif", {content.begin(), content.end()});
    ASSERT_TRUE(server.start());
    const std::string place = NBX::StringUtils::WString2Utf8String(server.url("new.tif")).substr(7);
    const RunResult planned = zmt({"/vsicurl/http://me:secret@" + place, "--lighting", "none", "--level", "4",
                                   "--plan", folder.out("plan")});
    EXPECT_EQ(0, planned.status) << planned.errors;
    EXPECT_EQ(std::string::npos, planned.errors.find("secret")) << planned.errors;
    EXPECT_NE(std::string::npos, planned.errors.find("warning: /vsicurl/http://" + place +
                                                     ": the plan keeps neither user name nor password"))
        << planned.errors;
    const std::string plan = readWhole(folder.out("plan"));
    EXPECT_EQ(std::string::npos, plan.find("secret"));
    EXPECT_NE(std::string::npos, plan.find("/vsicurl/http://" + place));
    part(1, 1);
}

TEST_F(TerrainParts, NamesWithPasswordsAreRefused) {
    for (const char * name : {"PG:host=h dbname=d user=me Password=secret", "MSSQL:server=h;PWD=secret",
                              "/vsicurl?url=http%3A%2F%2Fme%3Asecret%40h%2Fa.tif",
                              "/vsicurl?header.Authorization=secret&url=http%3A%2F%2Fh%2Fa.tif"}) {
        const RunResult refused = zmt({name, "--plan", folder.out("refused")});
        EXPECT_EQ(2, refused.status) << refused.errors;
        EXPECT_EQ(1U, refused.errorLines().size()) << refused.errors;
        EXPECT_NE(std::string::npos, refused.errors.find("the plan would keep the password")) << name;
        EXPECT_EQ(std::string::npos, refused.errors.find("secret")) << refused.errors;
    }
}

TEST_F(TerrainParts, LieInTheSystemThatThePlanWasGiven) {
    compare({folder.write("slope.tif", slope(150, 90).encode())}, {"--crs", "EPSG:3857"}, {2});
}

TEST_F(TerrainParts, RastersAreFoundFromOtherFolders) {
    folder.write("slope.tif", slope(40, 40).encode());
    const RunResult planned =
        runProcess("/bin/sh",
                   {"-c", "cd '" + (folder.path() / "in").string() +
                              "' && '" ZMT_EXECUTABLE "' build terrain slope.tif --plan '" +
                              folder.out("plan") + "' --lighting none"},
                   folder);
    EXPECT_EQ(0, planned.status) << planned.errors;
    part(1, 1);
    run(joining(1));
}

TEST_F(TerrainParts, WhatDoesNotBelongTogetherIsToldInOneLine) {
    const std::string raster = folder.write("slope.tif", slope(90, 90).encode());
    const Words options = {"--level", "4", "--lighting", "none"};
    plan({raster}, options);
    part(1, 3);
    part(3, 3);
    Words words = joining(3);
    words.erase(words.begin() + 2);
    expectProblem(words, 1, "part 2/3 is missing");
    part(2, 3);
    words = joining(3);
    words.insert(words.begin() + 1, partName(3, 3));
    expectProblem(words, 1, "part 3 once more");

    plan({raster}, {"--level", "3", "--lighting", "none"});
    expectProblem(joining(3), 1, "other options");
    for (unsigned k = 1; k <= 3; ++k)
        part(k, 3);
    run(joining(3));
    fs::remove(folder.out("joined.ztt"));

    // The same cells, but another file.
    fs::last_write_time(raster, fs::last_write_time(raster) - std::chrono::hours(1));
    expectProblem({folder.out("p"), "--part", "1/3", "--plan", folder.out("plan")}, 1,
                  "changed since the plan was made");
    plan({raster}, {"--level", "3", "--lighting", "none"});
    expectProblem(joining(3), 1, "another raster");
}

TEST_F(TerrainParts, OptionsAreChecked) {
    const std::string raster = folder.write("slope.tif", slope(40, 40).encode());
    plan({raster});
    const std::string made = folder.out("plan"), out = folder.out("p");
    expectProblem({out, "--part", "1/3"}, 2, "needs --plan");
    expectProblem({out, "--join"}, 2, "needs --plan");
    expectProblem({out, out, "--join", "--part", "1/1", "--plan", made}, 2, "exclude each other");
    for (const char * share : {"0/3", "4/3", "1", "1/", "/3", "1/3x", "-1/3", "1/-3", "1/2000000", "a/b", ""})
        expectProblem({out, "--part", share, "--plan", made}, 2, "--part must be K/N");
    for (const char * option : {"--level=5", "--resampling=average", "--merge=x", "--crs=EPSG:3857",
                                "--lighting=none", "--light=1,2", "--fill-voids"})
        expectProblem({out, option, "--part", "1/3", "--plan", made}, 2, "belongs to the plan");
    expectProblem({raster, out, "--part", "1/3", "--plan", made}, 2, "the part to write alone");
    expectProblem({out, "--join", "--plan", made}, 2, "PART... OUT");
    expectProblem({made, "--part", "1/3", "--plan", made}, 2, "same file");
    expectProblem({raster, "--part", "1/3", "--plan", made}, 2, "same file");
    expectProblem({raster, "--plan", raster}, 2, "same file");
    expectProblem({out, "--part", "1/3", "--plan", raster}, 1, "is no plan");
    expectProblem({made, out, "--join", "--plan", made}, 1, "is no part");
}

TEST_F(TerrainParts, WhatIsCancelledOrKilledLeavesNothing) {
    plan({s_data + "everest_heights.tif"});
    RunLimits limits;
    limits.interruptWhenIn = folder.path() / "out";
    for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
        limits.signal = signal;
        const RunResult run = zmt({folder.out("p"), "--part", "1/1", "--plan", folder.out("plan")}, limits);
        EXPECT_NE(0, run.status);
        EXPECT_EQ(1U, folder.results().size()) << signal;
    }
    part(1, 1);
    for (const int signal : {SIGINT, SIGKILL}) {
        limits.signal = signal;
        EXPECT_NE(0, zmt(joining(1), limits).status);
        EXPECT_EQ(2U, folder.results().size()) << signal;
    }
}

} // namespace
