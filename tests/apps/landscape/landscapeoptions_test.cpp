#include "landscape/landscapeoptions.h"

#include <limits>

#include <gtest/gtest.h>

#include "landscape/errors.h"

namespace {

TEST(ParseMethod, KnowsThreeNames) {
    EXPECT_EQ(TerrainMethod::Auto, parseMethod("auto"));
    EXPECT_EQ(TerrainMethod::Tree, parseMethod("tree"));
    EXPECT_EQ(TerrainMethod::Chunked, parseMethod("chunked"));
    for (const char * text : {"", "Auto", "flat", "tree "})
        EXPECT_THROW(parseMethod(text), UsageError) << text;
}

TEST(LandscapeOptions, InputsAreAllFilesThatAreNamed) {
    LandscapeOptions options;
    options.terrain = "t";
    options.images = {"/i.ztp", "/j.tif"};
    options.breakLines = {"b"};
    options.draped = {"d"};
    std::string told;
    for (const NamedFile & file : inputFiles(options))
        told += file.option + " " + file.path + "\n";
    EXPECT_EQ("--terrain t\n"
              "--image /i.ztp\nthe .prj beside --image /i.prj\n"
              "--image /j.tif\nthe .prj beside --image /j.prj\n"
              "--breaklines b\n--drape d\n",
              told);
}

struct OptionChange {
    const char * name;
    void (*make)(LandscapeOptions & options);
};

TEST(LandscapeOptions, AreCheckedBeforeAnyFileIsRead) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double infinite = std::numeric_limits<double>::infinity();
    const OptionChange cases[] = {
        {"unlit images",
         [](LandscapeOptions & o) {
             o.lighting = Lighting::Vertex;
             o.shadeImages = false;
         }},
        {"normals of chunks",
         [](LandscapeOptions & o) {
             o.lighting = Lighting::Vertex;
             o.method = TerrainMethod::Chunked;
         }},
        {"break lines in chunks",
         [](LandscapeOptions & o) {
             o.breakLines = {"lines.geojson"};
             o.method = TerrainMethod::Chunked;
         }},
        {"few vertices", [](LandscapeOptions & o) { o.tree.maxVertices = 49; }},
        {"many vertices", [](LandscapeOptions & o) { o.tree.maxVertices = 32001; }},
        {"no exaggeration", [](LandscapeOptions & o) { o.exaggeration = 0.0; }},
        {"negative exaggeration", [](LandscapeOptions & o) { o.exaggeration = -1.0; }},
        {"exaggeration is no number", [](LandscapeOptions & o) { o.exaggeration = nan; }},
        {"endless exaggeration", [](LandscapeOptions & o) { o.exaggeration = infinite; }},
        {"lift is no number", [](LandscapeOptions & o) { o.drapeLift = nan; }},
        {"endless lift", [](LandscapeOptions & o) { o.drapeLift = -infinite; }},
    };
    EXPECT_NO_THROW(checkLandscape({}));
    for (const OptionChange & c : cases) {
        LandscapeOptions bad;
        c.make(bad);
        EXPECT_THROW(checkLandscape(bad), UsageError) << c.name;
    }
}

} // namespace
