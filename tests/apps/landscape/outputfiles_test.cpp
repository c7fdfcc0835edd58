#include <cstdlib>
#include <filesystem>
#include <ostream>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "landscape/errors.h"
#include "landscape/outputfiles.h"

#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

namespace fs = std::filesystem;

std::string terrain() {
    SmallGeoTiff tiff{8, 8};
    for (unsigned i = 0; i < 64; ++i)
        tiff.heights.push_back(float(i));
    return tiff.encode();
}

std::string image() {
    SmallGeoTiff tiff{8, 8};
    tiff.pixels = SmallGeoTiff::Pixels::Colors;
    tiff.colors.assign(8 * 8 * 3, 128);
    return tiff.encode();
}

/// What is told of one output and one input; empty where nothing is.
std::string told(const std::string & output, const std::string & input) {
    try {
        checkOutputs({{"--in", input}}, {{"--out", output}});
    } catch (const UsageError & error) {
        return error.what();
    }
    return "";
}

class OutputFilesTest : public testing::Test {
protected:
    OutputFilesTest() {
        fs::create_directories(folder.in("folder/inner"));
        folder.write("file", "data");
        fs::create_symlink("file", folder.in("link"));
        fs::create_hard_link(folder.in("file"), folder.in("hard"));
        fs::create_symlink("folder", folder.in("away"));
        fs::create_symlink("folder/inner", folder.in("deep"));
        fs::create_symlink("new", folder.in("dangling"));
    }
    RunFolder folder;
};

TEST_F(OutputFilesTest, AFileIsTheSameUnderEachOfItsNames) {
    for (const char * name : {"file", "./file", "folder/../file", "link", "hard", "deep/../../file"}) {
        EXPECT_NE("", told(folder.in(name), folder.in("file"))) << name;
        EXPECT_NE("", told(folder.in("file"), folder.in(name))) << name;
    }
}

TEST_F(OutputFilesTest, AFileThatDoesNotExistYetIsTheSameUnderEachOfItsNames) {
    for (const char * name : {"new", "./new", "folder/../new", "deep/../../new", "dangling"})
        EXPECT_NE("", told(folder.in(name), folder.in("new"))) << name;
    EXPECT_NE("", told(folder.in("away/new"), folder.in("folder/new")));
    EXPECT_NE("", told(folder.in("none/new"), folder.in("none/./new")));
}

TEST_F(OutputFilesTest, OtherFilesAreNotTheSame) {
    EXPECT_EQ("", told(folder.in("new"), folder.in("file")));
    EXPECT_EQ("", told(folder.in("folder/file"), folder.in("file")));
    EXPECT_EQ("", told(folder.in("deep/../file"), folder.in("file"))) << "the parent of where the link leads";
    EXPECT_EQ("", told(folder.in("dangling"), folder.in("file")));
    EXPECT_EQ("", told("", "")) << "options that are not given";
}

TEST_F(OutputFilesTest, TheMessageNamesBothOptionsAndTheFile) {
    const std::string message = told(folder.in("link"), folder.in("file"));
    for (const std::string & word : {std::string("--in"), std::string("--out"), folder.in("link")})
        EXPECT_NE(std::string::npos, message.find(word)) << message;
}

TEST_F(OutputFilesTest, TwoOutputsAreTwoFiles) {
    EXPECT_THROW(checkOutputs({}, {{"--a", folder.in("new")}, {"--b", folder.in("./new")}}), UsageError);
    EXPECT_NO_THROW(checkOutputs({}, {{"--a", folder.in("new")}, {"--b", folder.in("other")}}));
    EXPECT_NO_THROW(checkOutputs({{"--in", folder.in("file")}, {"--in", folder.in("file")}}, {}));
}

TEST_F(OutputFilesTest, TheSourcesOfAVirtualRasterAreInputs) {
    folder.write("source.tif", terrain());
    const std::string virtualRaster =
        folder.write("t.vrt", "<VRTDataset rasterXSize=\"8\" rasterYSize=\"8\"><VRTRasterBand "
                              "dataType=\"Float32\" band=\"1\"><SimpleSource><SourceFilename "
                              "relativeToVRT=\"1\">source.tif</SourceFilename></SimpleSource>"
                              "</VRTRasterBand></VRTDataset>");
    EXPECT_NE(std::string::npos, told(folder.in("source.tif"), virtualRaster).find("a part of --in"));
    EXPECT_EQ("", told(folder.in("other.tif"), virtualRaster));
}

/// Command lines whose output is the file "a", which is also something else.
struct Overwriting {
    const char * name;
    std::vector<std::string> arguments; ///< IN stands for the folder of the inputs
    std::vector<std::string> words;
};

std::ostream & operator<<(std::ostream & stream, const Overwriting & c) {
    return stream << c.name;
}

class OverwritingTest : public testing::TestWithParam<Overwriting> {};

TEST_P(OverwritingTest, IsRefusedAndChangesNothing) {
    const RunFolder folder;
    folder.write("t.tif", terrain());
    folder.write("i.tif", image());
    folder.write("v.geojson", R"({"type":"FeatureCollection","features":[]})");
    std::vector<std::string> arguments = GetParam().arguments;
    for (std::string & argument : arguments)
        if (argument.rfind("IN/", 0) == 0) argument = folder.in(argument.substr(3));
    const RunResult run = runProcess(ZMT_EXECUTABLE, arguments, folder);
    EXPECT_EQ(2, run.status) << run.errors;
    ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
    for (const std::string & word : GetParam().words)
        EXPECT_NE(std::string::npos, run.errors.find(word)) << word << " is missing in\n" << run.errors;
    EXPECT_EQ(terrain(), readWhole(folder.in("t.tif")));
    EXPECT_EQ(image(), readWhole(folder.in("i.tif")));
    EXPECT_EQ(3U, folder.inputs().size()) << "nothing new";
}

INSTANTIATE_TEST_SUITE_P(
    Program, OverwritingTest,
    testing::Values(
        Overwriting{"PictureAndTerrain",
                    {"render", "--terrain", "IN/t.tif", "--out", "IN/t.tif"},
                    {"--out", "--terrain", "t.tif"}},
        Overwriting{"PictureAndImage",
                    {"render", "--terrain", "IN/t.tif", "--image", "IN/i.tif", "--out", "IN/./i.tif"},
                    {"--out", "--image", "i.tif"}},
        Overwriting{
            "PictureAndBreakLines",
            {"render", "--terrain", "IN/t.tif", "--breaklines", "IN/v.geojson", "--out", "IN/v.geojson"},
            {"--out", "--breaklines", "v.geojson"}},
        Overwriting{"PictureAndAreas",
                    {"render", "--terrain", "IN/t.tif", "--drape", "IN/v.geojson", "--out", "IN/v.geojson"},
                    {"--out", "--drape", "v.geojson"}},
        Overwriting{"FiguresAndTerrain",
                    {"render", "--terrain", "IN/t.tif", "--out", "IN/p.png", "--stats", "IN/t.tif"},
                    {"--stats", "--terrain", "t.tif"}},
        Overwriting{"PictureAndFigures",
                    {"render", "--terrain", "IN/t.tif", "--out", "IN/a", "--stats", "IN/./a"},
                    {"--stats", "--out", "a"}},
        Overwriting{"TreeAndHeights", {"build", "tree", "IN/t.tif", "IN/t.tif"}, {"OUT", "HEIGHTS", "t.tif"}},
        Overwriting{"TreeAndLines",
                    {"build", "tree", "IN/t.tif", "IN/v.geojson", "--breaklines", "IN/v.geojson"},
                    {"OUT", "--breaklines", "v.geojson"}},
        Overwriting{"ReportAndTerrain",
                    {"lod", "--terrain", "IN/t.tif", "--report", "IN/t.tif"},
                    {"--report", "--terrain", "t.tif"}},
        Overwriting{"MeshAndTerrain",
                    {"lod", "--terrain", "IN/t.tif", "--report", "IN/r.json", "--mesh", "0", "IN/t.tif"},
                    {"--mesh", "--terrain", "t.tif"}},
        Overwriting{"ReportAndMesh",
                    {"lod", "--terrain", "IN/t.tif", "--report", "IN/a", "--mesh", "0", "IN/a"},
                    {"--mesh", "--report", "a"}},
        Overwriting{"PictureAndSystemOfAPyramid",
                    {"render", "--terrain", "IN/t.tif", "--image", "IN/i.ztp", "--out", "IN/i.prj"},
                    {"--out", "--image", "i.prj"}},
        Overwriting{
            "PyramidAndImage", {"build", "pyramid", "IN/i.tif", "IN/i.tif"}, {"OUT", "IMAGE", "i.tif"}}),
    [](const auto & info) { return std::string(info.param.name); });

class ProtectedOutputTest : public testing::TestWithParam<Overwriting> {};

TEST_P(ProtectedOutputTest, StaysAsItIs) {
    const RunFolder folder;
    folder.write("t.tif", terrain());
    folder.write("i.tif", image());
    for (const char * name : {"file", "link"}) {
        folder.write("file", "old");
        ASSERT_EQ(0, ::chmod(folder.in("file").c_str(), 0444));
        if (!fs::exists(folder.in("link"))) fs::create_symlink("file", folder.in("link"));
        std::vector<std::string> arguments = GetParam().arguments;
        for (std::string & argument : arguments) {
            if (argument == "A") argument = folder.in(name);
            if (argument.rfind("IN/", 0) == 0) argument = folder.in(argument.substr(3));
        }
        const RunResult run = runProcess(ZMT_EXECUTABLE, arguments, folder);
        EXPECT_EQ(1, run.status) << run.errors;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(std::string::npos, run.errors.find("write protected")) << run.errors;
        EXPECT_EQ("old", readWhole(folder.in("file")));
    }
    // A link stays, what it points to is replaced.
    ASSERT_EQ(0, ::chmod(folder.in("file").c_str(), 0644));
    std::vector<std::string> arguments = GetParam().arguments;
    for (std::string & argument : arguments) {
        if (argument == "A") argument = folder.in("link");
        if (argument.rfind("IN/", 0) == 0) argument = folder.in(argument.substr(3));
    }
    for (const bool isDangling : {false, true}) {
        if (isDangling) fs::remove(folder.in("file"));
        const RunResult run = runProcess(ZMT_EXECUTABLE, arguments, folder);
        EXPECT_EQ(0, run.status) << run.errors;
        EXPECT_TRUE(fs::is_symlink(folder.in("link")));
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder.in("file"))));
        EXPECT_NE("old", readWhole(folder.in("file")));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Program, ProtectedOutputTest,
    testing::Values(
        Overwriting{"Picture", {"render", "--terrain", "IN/t.tif", "--size", "8x8", "--out", "A"}, {}},
        Overwriting{"Figures",
                    {"render", "--terrain", "IN/t.tif", "--size", "8x8", "--out", "IN/p.png", "--stats", "A"},
                    {}},
        Overwriting{"Report", {"lod", "--terrain", "IN/t.tif", "--report", "A"}, {}},
        Overwriting{"Mesh", {"lod", "--terrain", "IN/t.tif", "--report", "IN/r", "--mesh", "0", "A"}, {}},
        Overwriting{"Pyramid", {"build", "pyramid", "IN/i.tif", "A"}, {}}),
    [](const auto & info) { return std::string(info.param.name); });

} // namespace
