#include "landscape/landscape.h"

#include <array>
#include <iomanip>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <nbx/engine/engine.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/object/progress.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>
#include <zmt/raster/gdal/coordinatesystem.h>

#include "citybuilding.h"
#include "landscape/errors.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

using Point = NBX::Vector3Base<double>;

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
    result.lighting = Lighting::Static;
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
    chunked.method = TerrainMethod::Chunked;
    chunked.lighting = Lighting::Dynamic;
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
    ASSERT_EQ(5U, landscape.layers().size());
    EXPECT_EQ("everest_image_detail.tif", landscape.layers()[3].name);
    EXPECT_EQ(LayerKind::Draped, landscape.layers()[4].kind) << "it lies above all images";
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
    made.lighting = Lighting::Static;
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

TEST(Landscape, LayersTellTheirKind) {
    using Kinds = std::vector<LayerKind>;
    const struct {
        Lighting lighting;
        Kinds kinds;
    } cases[] = {
        {Lighting::Relief, {LayerKind::HeightColors, LayerKind::Shading, LayerKind::Image}},
        {Lighting::Static, {LayerKind::HeightColors, LayerKind::Shading, LayerKind::Image}},
        {Lighting::Dynamic, {LayerKind::HeightColors, LayerKind::Image, LayerKind::Shading}},
        {Lighting::Vertex, {LayerKind::HeightColors, LayerKind::Image}},
    };
    for (const auto & [lighting, expected] : cases) {
        LandscapeOptions made = options();
        made.images = {s_image};
        made.lighting = lighting;
        Kinds kinds;
        const Landscape landscape(made);
        for (const GroundLayer & layer : landscape.layers())
            kinds.push_back(layer.kind);
        EXPECT_EQ(expected, kinds) << "lighting " << int(lighting);
    }
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

/// Poles of 1 m by 10 m, 6 m above ground that rises to the east from 100 m on, by a metre every two.
class LandscapeWithACity : public testing::Test {
protected:
    void SetUp() override {
        SmallGeoTiff heights;
        heights.width = heights.height = 30;
        for (unsigned i = 0; i < heights.width * heights.height; ++i)
            heights.heights.push_back(
                float(groundAt(heights.west + heights.cell * (i % heights.width + 0.5))));
        options.terrain = folder.write("slope.tif", heights.encode());
        folder.write("pole.obj", "v 0 0 0\nv 1 0 0\nv 1 10 0\nv 0 10 0\nf 1 2 3 4\n");
        std::string poles;
        for (const double x : s_places)
            poles += placemark(x, heights.north - 480.0);
        CityBuilding building;
        building.inputs = {folder.write("poles.kml", "<kml><Document>" + poles + "</Document></kml>")};
        building.terrain = options.terrain;
        building.out = folder.out("poles.city");
        buildCity(building);
        options.cities.files = {building.out};
    }

    static double groundAt(double x) { return 100.0 + 0.5 * (x - 500000.0); }
    static std::string placemark(double x, double y) {
        using ZMT::RASTER::CoordinateSystem;
        const CoordinateSystem system(CoordinateSystem::parse("EPSG:32645").wkt);
        const auto at = system.toLonLat({x, y}).value();
        std::ostringstream text;
        text << std::setprecision(15) << "<Placemark><Model><Location><longitude>" << at.longitude
             << "</longitude><latitude>" << at.latitude << "</latitude><altitude>6</altitude></Location>"
             << "<altitudeMode>relativeToGround</altitudeMode><Link><href>pole.obj</href></Link>"
             << "</Model></Placemark>";
        return text.str();
    }
    /// Of what stands at `x`, height of its foot and its top above the ground that is drawn.
    static std::pair<double, double> standing(const Landscape & landscape, double x) {
        const auto top = ZMT::CORE::GeoTransformation::geo2nbxTf(Point(x + 0.5, 0.0, 3099520.0));
        // From below along the pole, and on the way down from above.
        const double ground =
            landscape.exaggeration() * ZMT::CORE::GeoTransformation::geo2nbxTf(Point(x, groundAt(x), 0.0)).y;
        const auto isHit = [&](double height) {
            const NBX::SO<NBX::Engine> engine(new NBX::Engine());
            const NBX::SO<NBX::RayTracingTechnique> ray(new NBX::RayTracingTechnique(
                NBX::Ray(Point(top.x, ground + height, top.z - 3.0), Point(0, 0, 1))));
            return ray->trace(engine.get(), landscape.cities().front().node().get());
        };
        double low = -50.0, high = 50.0;
        while (low < high && !isHit(low))
            low += 0.125;
        while (low < high && !isHit(high))
            high -= 0.125;
        return {low, high};
    }

    static constexpr std::array<double, 3> s_places = {500100.0, 500480.0, 500860.0};
    const RunFolder folder;
    LandscapeOptions options;
};

TEST_F(LandscapeWithACity, ModelsStandOnExaggeratedGroundAsFarAboveItAsBefore) {
    Landscape landscape(options);
    for (const double exaggeration : {1.0, 2.0, 0.5, 20.0, 1.0}) {
        landscape.setExaggeration(exaggeration);
        for (const double x : s_places) {
            SCOPED_TRACE(testing::Message() << x << " at " << exaggeration);
            const auto [low, high] = standing(landscape, x);
            EXPECT_NEAR(low, 6.0, 0.2);
            EXPECT_NEAR(high, 16.0, 0.2) << "models are not stretched";
        }
    }
    options.exaggeration = 3.0;
    EXPECT_NEAR(standing(Landscape(options), s_places[2]).first, 6.0, 0.2) << "from the start on";
}

TEST(Landscape, OnlyLightOnTheVerticesNeedsFullDetail) {
    LandscapeOptions made = options();
    EXPECT_EQ(3.0, Landscape(made).geometryErrorFor(3.0));
    made.lighting = Lighting::Vertex;
    EXPECT_EQ(0.0, Landscape(made).geometryErrorFor(3.0));
}

struct Change {
    const char * name;
    void (*make)(LandscapeOptions & options);
};

/// Whether the options give chunks.
bool isChunked(const LandscapeOptions & options) {
    const Landscape landscape(options);
    const bool isChunked = dynamic_cast<ZMT::CORE::ChunkedLodTerrain *>(landscape.terrain().get()) != nullptr;
    EXPECT_EQ(isChunked, !landscape.tree());
    return isChunked;
}

TEST(Landscape, IsChunkedUnlessTheTreeIsNeeded) {
    LandscapeOptions made;
    made.terrain = s_everest;
    EXPECT_TRUE(isChunked(made));
    for (const Change & c : {
             Change{"budget", [](LandscapeOptions & o) { o.tree.maxVertices = 4000; }},
             Change{"break lines", [](LandscapeOptions & o) { o.breakLines = {s_glaciers}; }},
             Change{"normals", [](LandscapeOptions & o) { o.lighting = Lighting::Vertex; }},
             Change{"asked for", [](LandscapeOptions & o) { o.method = TerrainMethod::Tree; }},
         }) {
        LandscapeOptions needsTree = made;
        c.make(needsTree);
        EXPECT_FALSE(isChunked(needsTree)) << c.name;
    }
    made.tree.maxVertices = 4000;
    made.method = TerrainMethod::Chunked;
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
    made.method = TerrainMethod::Chunked;
    const Landscape landscape(made);
    const auto & terrain = dynamic_cast<const ZMT::CORE::ChunkedLodTerrain &>(*landscape.terrain());
    EXPECT_GT(terrain.worstErrorRatio(), 1.0);
    EXPECT_DOUBLE_EQ(3.0, landscape.geometryErrorFor(3.0) * terrain.worstErrorRatio());
}

} // namespace
