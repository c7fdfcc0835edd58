// Maps of the relief, as a user of the program makes them.

#include <cmath>
#include <filesystem>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/gdal/vectorfile.h>

#include "datafiles.h"
#include "support/imagecompare.h"
#include "support/smallgeotiff.h"
#include "support/wronguse.h"
#include "support/zmtrun.h"

namespace {

const std::string s_fineEverest = s_data + "everest_30m_heights.tif";

class Relief : public ::testing::Test {
protected:
    RunResult relief(const std::vector<std::string> & arguments, const RunLimits & limits = {}) const {
        std::vector<std::string> all = {"relief"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return runProcess(ZMT_EXECUTABLE, all, folder, limits);
    }
    std::string made(const std::string & name, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin() + 2, folder.out(name));
        const RunResult run = relief(arguments);
        EXPECT_EQ(0, run.status) << run.errors;
        EXPECT_EQ("", run.errors);
        return folder.out(name);
    }

    RunFolder folder;
};

/// The share of a picture that is ink, of what has heights.
double inkOf(const std::string & path) {
    const NBX::SO<NBX::Image> picture = readPng(path);
    double ink = 0.0, known = 0.0;
    for (int y = 0; y < picture->height(); ++y)
        for (int x = 0; x < picture->width(); ++x) {
            const NBX::Color color = picture->getColor(x, y);
            ink += (1.0 - color[0]) * color[3];
            known += color[3];
        }
    return ink / known;
}

TEST_F(Relief, HachuresAreInkOfATenthToTwoFifths) {
    for (const char * name : {"everest_30m", "everest", "exploradores", "jacksboro", "world"})
        for (const char * reference : {"", "slope", "shade"}) {
            std::vector<std::string> arguments = {"hachures", s_data + name + "_heights.tif"};
            if (*reference) arguments.insert(arguments.end(), {"--reference", reference});
            const double ink = inkOf(made("h.png", arguments));
            EXPECT_GT(ink, 0.1) << name << " " << reference;
            EXPECT_LT(ink, 0.4) << name << " " << reference;
        }
}

TEST_F(Relief, PicturesAreAsEver) {
    EXPECT_EQ("", compareWithGolden(made("a.png", {"hachures", s_jacksboroHeights}), "hachures"));
    EXPECT_EQ("", compareWithGolden(made("b.png", {"hachures", s_jacksboroHeights, "--reference", "shade"}),
                                    "hachures_shade"));
    EXPECT_EQ("", compareWithGolden(made("c.png", {"shade", s_jacksboroHeights}), "shade"));
}

TEST_F(Relief, AreTheSameOnEveryRun) {
    for (const char * suffix : {"png", "tif", "svg", "geojson"}) {
        const std::string first =
            readWhole(made(std::string("1.") + suffix, {"hachures", s_jacksboroHeights}));
        EXPECT_EQ(first, readWhole(made(std::string("2.") + suffix,
                                        {"hachures", s_jacksboroHeights, "--threads", "1"})))
            << suffix;
    }
}

TEST_F(Relief, NumbersLieOnTheCellsOfTheirSource) {
    const ZMT::RASTER::RasterFile source(s_jacksboroHeights);
    for (const char * kind : {"slope", "curvature", "shade"}) {
        const ZMT::RASTER::RasterFile file(made(std::string(kind) + ".tif", {kind, s_jacksboroHeights}));
        EXPECT_EQ(source.grid().cellsX, file.grid().cellsX);
        EXPECT_EQ(source.grid().cellsY, file.grid().cellsY);
        EXPECT_NEAR(source.grid().minX, file.grid().minX, 1e-12);
        EXPECT_NEAR(source.grid().minY, file.grid().minY, 1e-12);
        EXPECT_EQ(source.reference().name, file.reference().name);
    }
}

/// A degree is as long as it is on the ground: slopes are those of the same heights in metres.
TEST_F(Relief, SlopesOfDegreesAreTrue) {
    SmallGeoTiff tiff{40, 30};
    tiff.isInDegrees = true;
    tiff.system = 4326;
    tiff.west = 10.0;
    tiff.north = 60.01;
    tiff.cell = 0.001;
    for (unsigned i = 0; i < 40 * 30; ++i)
        tiff.heights.push_back(float(10.0 * (i % 40)));
    const auto slopes =
        ZMT::RASTER::RasterFile(made("s.tif", {"slope", folder.write("h.tif", tiff.encode())})).read().raster;
    EXPECT_NEAR(std::atan(10.0 / 55.80) * 180.0 / M_PI, slopes->value(20U, 15U), 0.01)
        << "a thousandth of a degree is 55.80 m there";
}

TEST_F(Relief, HachuresAreLinesAsWell) {
    for (const char * suffix : {"gpkg", "geojson"}) {
        const std::string path = made(std::string("s.") + suffix, {"hachures", s_fineEverest});
        EXPECT_GT(ZMT::RASTER::VectorFile(path).read("", {-1e9, -1e9, 1e9, 1e9}).size(), 500U) << suffix;
    }
    EXPECT_EQ(2U, folder.results().size()) << "nothing beside them";
}

TEST_F(Relief, OptionsReachTheDrawing) {
    const std::string plain = readWhole(made("plain.png", {"hachures", s_fineEverest}));
    for (const std::vector<std::string> & words : std::vector<std::vector<std::string>>{
             {"--width", "300"},
             {"--height", "300"},
             {"--stroke", "5"},
             {"--inner-stroke", "2.5"},
             {"--scaling", "2"},
             {"--window", "9"},
             {"--tolerance", "30"},
             {"--min-slope", "40"},
             {"--min-curvature", "0"},
             {"--max-curvature", "0"},
             {"--base-height", "33"},
             {"--interval", "77"},
             {"--no-full-length"},
             {"--overlapping"},
             {"--spacing", "4"},
             {"--seed-step", "50"},
             {"--min-steps", "12"},
             {"--max-steps", "10"},
             {"--ink"},
             {"--fill-voids"},
             {"--reference", s_fineEverest, "--black", "8000", "--white", "5000"},
             {"--reference", "slope", "--max-stroke", "12"}}) {
        std::vector<std::string> arguments = {"hachures", s_fineEverest};
        arguments.insert(arguments.end(), words.begin(), words.end());
        EXPECT_NE(plain, readWhole(made("other.png", arguments))) << words[0];
    }
}

TEST_F(Relief, APictureMayBeTheBrush) {
    const std::string brush = folder.in("brush.png");
    writePng(NBX::MemoryImage(6, 6, NBX::LS_Luminance), brush); // black
    EXPECT_GT(inkOf(made("b.png", {"hachures", s_fineEverest, "--brush", brush})),
              1.2 *
                  inkOf(made("s.png", {"hachures", s_fineEverest, "--stroke", "6", "--inner-stroke", "1"})));
    const RunResult wrong =
        relief({"hachures", s_fineEverest, folder.out("x.png"), "--brush", s_fineEverest});
    EXPECT_EQ(1, wrong.status);
    EXPECT_NE(std::string::npos, wrong.errors.find("is no brush")) << wrong.errors;
}

TEST_F(Relief, WrongUseIsOneLine) {
    const WrongUse cases[] = {
        {"numbers as a picture", {"slope", s_fineEverest, folder.out("x.png")}, "ends in tif"},
        {"lines of a shade", {"shade", s_fineEverest, folder.out("x.svg")}, "tif or png"},
        {"no suffix", {"hachures", s_fineEverest, folder.out("x")}, "suffix"},
        {"the input", {"shade", s_fineEverest, s_fineEverest}, "same file"},
        {"the reference",
         {"hachures", s_fineEverest, s_jacksboroHeights, "--reference", s_jacksboroHeights},
         "same file"},
        {"even window", {"slope", s_fineEverest, folder.out("x.tif"), "--window", "4"}, "--window"},
        {"unknown kind", {"curvature", s_fineEverest, folder.out("x.tif"), "--kind", "odd"}, "cross-section"},
        {"dark", {"shade", s_fineEverest, folder.out("x.tif"), "--elevation", "-1"}, "--elevation"},
        {"flat", {"shade", s_fineEverest, folder.out("x.tif"), "--exaggeration", "0"}, "--exaggeration"},
        {"thin", {"hachures", s_fineEverest, folder.out("x.tif"), "--stroke", "1"}, "--stroke"},
        {"inner above outer",
         {"hachures", s_fineEverest, folder.out("x.tif"), "--inner-stroke", "4"},
         "--inner-stroke"},
        {"brushes of two kinds",
         {"hachures", s_fineEverest, folder.out("x.tif"), "--stroke", "4", "--reference", "slope"},
         "--reference"},
        {"black without reference",
         {"hachures", s_fineEverest, folder.out("x.tif"), "--black", "4"},
         "--reference"},
        {"steps", {"hachures", s_fineEverest, folder.out("x.tif"), "--min-steps", "200"}, "--min-steps"},
        {"interval", {"hachures", s_fineEverest, folder.out("x.tif"), "--interval", "0"}, "--interval"},
    };
    for (const WrongUse & wrong : cases) {
        const RunResult run = relief(wrong.arguments);
        EXPECT_EQ(2, run.status) << wrong;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(std::string::npos, run.errors.find(wrong.words)) << run.errors;
    }
    EXPECT_TRUE(folder.results().empty());
}

TEST_F(Relief, WhatCannotBeReadIsOneLine) {
    const std::string whole = readWhole(s_fineEverest);
    const std::string cut = folder.write("cut.tif", whole.substr(0, whole.size() / 2));
    const std::string text = folder.write("text.tif", "no raster");
    for (const char * kind : {"slope", "shade", "curvature", "hachures"})
        for (const std::string & path : {cut, text, folder.in("missing.tif")}) {
            const RunResult run = relief({kind, path, folder.out("x.tif")});
            EXPECT_EQ(1, run.status) << kind << " " << path;
            EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        }
    EXPECT_TRUE(folder.results().empty());
}

TEST_F(Relief, AFullDiskLeavesNothing) {
    RunLimits limits;
    limits.largestFile = 4096;
    for (const char * kind : {"slope", "shade", "hachures"})
        for (const char * name : {"x.tif", "x.png", "x.gpkg"}) {
            if (*kind != 'h' && std::string(name) == "x.gpkg") continue;
            if (*kind == 's' && kind[1] == 'l' && std::string(name) == "x.png") continue;
            const RunResult run = relief({kind, s_jacksboroHeights, folder.out(name)}, limits);
            EXPECT_EQ(1, run.status) << kind << " " << name;
            EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
            EXPECT_TRUE(folder.results().empty()) << kind << " " << name;
        }
}

TEST_F(Relief, IsCancelled) {
    RunLimits limits;
    limits.interruptWhenIn = folder.path() / "out";
    SmallGeoTiff tiff{3000, 1500};
    for (unsigned i = 0; i < 3000 * 1500; ++i)
        tiff.heights.push_back(float(i % 3000 * 0.7 + std::sin(i * 0.001) * 100.0));
    const std::string heights = folder.write("heights.tif", tiff.encode());
    for (const char * kind : {"shade", "hachures"}) {
        const RunResult run = relief({kind, heights, folder.out("x.tif")}, limits);
        EXPECT_EQ(1, run.status) << kind;
        EXPECT_NE(std::string::npos, run.errors.find("cancelled")) << run.errors;
        EXPECT_TRUE(folder.results().empty());
    }
}

} // namespace
