#include "landscape/landscape.h"

#include <limits>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <nbx/object/progress.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

#include "landscape/errors.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

const std::string s_data = ZMT_DATA_DIR "/../tests/data/";
const std::string s_everest = s_data + "everest_heights.tif";
const std::string s_image = s_data + "everest_image.tif";
const std::string s_detail = s_data + "everest_image_detail.tif";
const std::string s_glaciers = ZMT_DATA_DIR "/everest_glaciers.geojson";

LandscapeOptions options() {
    LandscapeOptions result;
    result.terrain = s_everest;
    result.tree.maxVertices = 200;
    return result;
}

/// Everything that a plain terrain can have.
LandscapeOptions everything() {
    LandscapeOptions result = options();
    result.images = {s_image};
    result.breakLines = {s_glaciers};
    result.draped = {s_glaciers};
    result.lighting = "static";
    return result;
}

/// Notes what is shown, and cancels what has a title.
class Display : public NBX::ProgressDisplay {
public:
    explicit Display(const std::string & canceled = "") : canceled_(canceled) {
        NBX::Progress::setDisplay(this);
    }
    ~Display() override { NBX::Progress::setDisplay(nullptr); }

    void begin(const NBX::Progress &) override {}
    bool update(const NBX::Progress & progress) override {
        titles.insert(progress.title());
        return progress.title() != canceled_;
    }
    void end(const NBX::Progress &) override {}

    std::set<std::string> titles;

private:
    std::string canceled_;
};

std::string failureOf(const LandscapeOptions & options) {
    try {
        const Landscape landscape(options);
        return "no failure";
    } catch (const DataError & error) {
        return error.what();
    }
}

TEST(Landscape, EachStepIsShownAndMayBeCancelled) {
    LandscapeOptions chunked = options();
    chunked.method = "chunked";
    chunked.lighting = "dynamic";
    for (const LandscapeOptions & made : {everything(), chunked}) {
        std::set<std::string> titles;
        {
            const Display display;
            const Landscape landscape(made);
            titles = display.titles;
        }
        EXPECT_GE(titles.size(), 4U);
        for (const std::string & title : titles) {
            // Seconds in all, and the picture comes next.
            if (title == "converting height values" || title == "calculating LOD parameters") continue;
            const Display display(title);
            EXPECT_EQ("cancelled", failureOf(made)) << title;
        }
    }
    const Display display;
    const Landscape landscape(everything());
    for (const std::string & title :
         {"reading " + s_everest, std::string("warping to metres"), "reading " + s_image,
          "stamping " + s_glaciers, "reading " + s_glaciers, std::string("generating terrain LOD model"),
          "draping " + s_glaciers, std::string("making a light map")})
        EXPECT_EQ(1U, display.titles.count(title)) << title;
}

TEST(Landscape, LaterImagesLieOnTheOthersAndBelowTheGround) {
    LandscapeOptions made = everything();
    Landscape landscape(made);
    const auto node = landscape.node();
    const auto terrain = landscape.terrain();
    const unsigned objects = node->objects();
    const NBX::RenderObj * ground = node->object(objects - 1);
    landscape.addImage(landscape.readImage(s_detail));
    ASSERT_EQ(4U, landscape.layers().size());
    EXPECT_EQ("everest_image_detail.tif", landscape.layers()[3].name);
    ASSERT_EQ(objects + 1, node->objects());
    EXPECT_EQ(landscape.layers()[2].effect.get(), node->object(objects - 2));
    EXPECT_EQ(landscape.layers()[3].effect.get(), node->object(objects - 1));
    EXPECT_EQ(ground, node->object(objects));
    EXPECT_EQ(terrain, landscape.terrain());
    EXPECT_EQ(landscape.layers()[3].box.diagonal().x, landscape.interest().diagonal().x);
}

TEST(Landscape, AShadingOfImagesLiesOnLaterOnesToo) {
    LandscapeOptions made = options();
    made.images = {s_image};
    made.lighting = "static";
    made.shadeImages = true;
    Landscape landscape(made);
    landscape.addImage(landscape.readImage(s_detail));
    ASSERT_EQ(4U, landscape.layers().size());
    EXPECT_EQ("everest_image.tif", landscape.layers()[1].name);
    EXPECT_EQ("everest_image_detail.tif", landscape.layers()[2].name);
    EXPECT_EQ("light map", landscape.layers()[3].name);
    const auto node = landscape.node();
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(landscape.layers()[i].effect.get(), node->object(node->objects() - 5 + i)) << i;
}

TEST(Landscape, AnImageThatCannotBeReadChangesNothing) {
    const RunFolder folder;
    const Landscape landscape(options());
    const unsigned objects = landscape.node()->objects();
    EXPECT_THROW(landscape.readImage(folder.write("bad.tif", "no image")), std::exception);
    EXPECT_THROW(landscape.readImage(s_data + "jacksboro_heights.tif"), DataError) << "it lies elsewhere";
    EXPECT_EQ(objects, landscape.node()->objects());
    EXPECT_EQ(2U, landscape.layers().size());
}

TEST(Landscape, APlainOneIsOfInterestWhereItsImageWouldLie) {
    LandscapeOptions plain = options();
    plain.images = {s_image};
    plain.plain = true;
    const Landscape landscape(plain);
    EXPECT_EQ(1U, landscape.layers().size()) << "the shading";
    ASSERT_TRUE(landscape.interest().isDefined());
    const GroundLayer image = landscape.readImage(s_image);
    EXPECT_EQ(image.box.getLLF().x, landscape.interest().getLLF().x);
    EXPECT_EQ(image.box.getURB().z, landscape.interest().getURB().z);
}

TEST(Landscape, OnlyLightOnTheVerticesNeedsFullDetail) {
    LandscapeOptions made = options();
    EXPECT_EQ(3.0, Landscape(made).geometryErrorFor(3.0));
    made.lighting = "vertex";
    EXPECT_EQ(0.0, Landscape(made).geometryErrorFor(3.0));
}

struct Change {
    const char * name;
    void (*make)(LandscapeOptions & options);
};

/// Whether the options give chunks.
bool isChunked(const LandscapeOptions & options) {
    return dynamic_cast<ZMT::CORE::ChunkedLodTerrain *>(Landscape(options).terrain().get()) != nullptr;
}

TEST(Landscape, IsChunkedUnlessTheTreeIsNeeded) {
    LandscapeOptions made;
    made.terrain = s_everest;
    EXPECT_EQ("auto", made.method);
    EXPECT_TRUE(isChunked(made));
    for (const Change & c : {
             Change{"budget", [](LandscapeOptions & o) { o.tree.maxVertices = 4000; }},
             Change{"break lines", [](LandscapeOptions & o) { o.breakLines = {s_glaciers}; }},
             Change{"normals", [](LandscapeOptions & o) { o.lighting = "vertex"; }},
             Change{"asked for", [](LandscapeOptions & o) { o.method = "tree"; }},
         }) {
        LandscapeOptions needsTree = made;
        c.make(needsTree);
        EXPECT_FALSE(isChunked(needsTree)) << c.name;
    }
    made.tree.maxVertices = 4000;
    made.method = "chunked";
    EXPECT_TRUE(isChunked(made)) << "asked for";
}

TEST(Landscape, IsTheTreeWhereChunksDoNotReach) {
    const RunFolder folder;
    SmallGeoTiff wide{8194, 2};
    wide.heights.assign(2 * 8194, 5.0F);
    LandscapeOptions made;
    made.terrain = folder.write("t.tif", wide.encode());
    EXPECT_FALSE(isChunked(made));
}

TEST(Landscape, PatchesThatAreWorseThanTheyStateAreAllowedLess) {
    LandscapeOptions made = options();
    made.method = "chunked";
    const Landscape landscape(made);
    const auto & terrain = dynamic_cast<const ZMT::CORE::ChunkedLodTerrain &>(*landscape.terrain());
    EXPECT_GT(terrain.worstErrorRatio(), 1.0);
    EXPECT_DOUBLE_EQ(3.0, landscape.geometryErrorFor(3.0) * terrain.worstErrorRatio());
}

TEST(Landscape, OptionsAreCheckedBeforeAnyFileIsRead) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double infinite = std::numeric_limits<double>::infinity();
    const Change cases[] = {
        {"method", [](LandscapeOptions & o) { o.method = "flat"; }},
        {"lighting", [](LandscapeOptions & o) { o.lighting = "neon"; }},
        {"light", [](LandscapeOptions & o) { o.light = "90"; }},
        {"unlit images",
         [](LandscapeOptions & o) {
             o.lighting = "vertex";
             o.shadeImages = false;
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
    EXPECT_NO_THROW(checkLandscape(options()));
    for (const Change & c : cases) {
        LandscapeOptions bad = options();
        c.make(bad);
        EXPECT_THROW(checkLandscape(bad), UsageError) << c.name;
    }
}

} // namespace
