#include <zmt/core/texturedtriangles/citymodels.h>

#include <cmath>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/data/objectsaver.h>
#include <nbx/scene/node/lodnode.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/tf.h>
#include <support/damagedstreams.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <support/temporaryfolder.h>
#include <support/thrownwords.h>
#include <support/webtest.h>

#include "onetriangle.h"

namespace ZMT::CORE {
namespace {

using NBX::SO;
using Point = CityModels::Point;
using Box = NBX::Bounds;

SO<TexturedTriangleTree> tree(double x, const std::vector<std::wstring> & pagingFiles) {
    const SO<TexturedTriangleTree> result(new TexturedTriangleTree());
    result->setUntexturedGeometry(oneTriangle(x));
    for (std::size_t i = 0; i < pagingFiles.size(); ++i)
        result->registerTextureLayer(int(i), pagingFiles[i], nullptr,
                                     TexturedTriangleTree::TextureFormatRGBA8);
    return result;
}

RASTER::GeoReference reference() {
    RASTER::GeoReference result;
    result.isGeoreferenced = true;
    result.wkt = "LOCAL_CS[\"caf\u00e9\"]";
    result.name = "a system";
    result.unitName = "metre";
    return result;
}

/// Two trees, the second one twice, deep in the scene.
SO<CityModels> smallCity(const std::string & folder = "") {
    const auto name = [&](const char * file) { return NBX::StringUtils::Utf8String2WString(folder + file); };
    const SO<NBX::SceneThing> scene(new NBX::SceneThing);
    const SO<TexturedTriangleTree> opaque = tree(0.0, {name("c.opaque.city"), name("c.light.city")});
    const SO<TexturedTriangleTree> seenThrough = tree(10.0, {name("c.trans.city")});
    scene->append(opaque.get());
    const SO<NBX::SceneThing> below(new NBX::SceneThing(scene.get()));
    below->append(seenThrough.get());
    const SO<NBX::SceneThing> again(new NBX::SceneThing(below.get()));
    again->append(seenThrough.get());
    return new CityModels(
        scene, {370000.25, 40.0, 5800000.5}, reference(),
        {{"house", "house.dae", {370001.0, 40.0, 5800001.0}, Box({0, 0, 0}, {1, 1, 1}), 0, 1},
         {"tower", "tower.glb", {370010.0, 40.0, 5800001.0}, Box({10, 0, 0}, {11, 1, 0}), 1, 1, 38.5},
         {"empty", "none.obj", {}, Box(), 2, 0}});
}

std::vector<std::wstring> pagingFiles(const CityModels & city) {
    std::vector<std::wstring> names;
    for (const SO<TexturedTriangleTree> & tree : city.trees())
        for (int layer = 0; layer < tree->getNumberOfLayers(); ++layer)
            names.push_back(tree->getPagingFile(layer));
    return names;
}

class CityModelsTest : public testing::Test {
protected:
    std::string path(const std::string & name) const { return std::getenv("TMPDIR") + ("/" + name); }

    const TemporaryFolder folder_;
};

TEST_F(CityModelsTest, AreReadAsTheyWereWritten) {
    const SO<CityModels> city = smallCity();
    const SO<CityModels> back = roundTrip(city);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->origin(), Point(370000.25, 40.0, 5800000.5));
    EXPECT_EQ(back->reference().wkt, reference().wkt);
    EXPECT_EQ(back->reference().name, "a system");
    EXPECT_TRUE(back->reference().isGeoreferenced);
    ASSERT_EQ(back->models().size(), 3U);
    const CityModels::Model & tower = back->models()[1];
    EXPECT_EQ(tower.name, "tower");
    EXPECT_EQ(tower.source, "tower.glb");
    EXPECT_EQ(tower.place, Point(370010.0, 40.0, 5800001.0));
    EXPECT_FALSE(tower.box != Box({10, 0, 0}, {11, 1, 0}));
    EXPECT_EQ(tower.firstTriangle, 1U);
    EXPECT_EQ(tower.triangles, 1U);
    EXPECT_EQ(tower.ground, 38.5);
    EXPECT_TRUE(std::isnan(back->models()[0].ground));
    EXPECT_FALSE(back->models()[2].box.isDefined());
    EXPECT_EQ(back->trees().size(), 2U);
    EXPECT_FALSE(back->boundingBox() != Box({0, 0, 0}, {11, 1, 0}));
    EXPECT_EQ(NBX::ObjectStreamWriter::write(*back), NBX::ObjectStreamWriter::write(*city));
}

TEST_F(CityModelsTest, ModelIsTheOneOfTheSmallestBox) {
    const SO<CityModels> city(new CityModels(new NBX::SceneThing, {}, {},
                                             {{"town", "", {}, Box({0, 0, 0}, {100, 20, 100}), 0, 1},
                                              {"house", "", {}, Box({10, 0, 10}, {20, 5, 20}), 1, 1},
                                              {"wall", "", {}, Box({10, 0, 20}, {20, 5, 20}), 2, 1},
                                              {"nothing", "", {}, Box(), 3, 0}}));
    const auto at = [&](const Point & p, double tolerance) {
        const CityModels::Model * model = city->modelAt(p, tolerance);
        return model ? model->name : "";
    };
    EXPECT_EQ(at({50, 1, 50}, 0.0), "town");
    EXPECT_EQ(at({15, 1, 15}, 0.0), "house");
    EXPECT_EQ(at({15, 1, 20}, 0.0), "wall");
    EXPECT_EQ(at({15, 1, 20.01}, 0.0), "town");
    EXPECT_EQ(at({15, 1, 20.01}, 0.1), "wall") << "thin boxes count as well";
    EXPECT_EQ(at({15, 21, 15}, 0.0), "");
    EXPECT_EQ(at({100.05, 1, 15}, 0.1), "town");
}

TEST_F(CityModelsTest, FilesAreToldFromOtherObjects) {
    smallCity(path(""))->write(path("c.any"));
    EXPECT_TRUE(CityModels::isFile(path("c.any")));
    NBX::ObjectSaver::write(smallCity()->scene().get(), path("s.city"));
    EXPECT_FALSE(CityModels::isFile(path("s.city")));
    EXPECT_FALSE(CityModels::isFile(path("none")));
}

TEST_F(CityModelsTest, PagingFilesAreThoseBesideTheFile) {
    const SO<CityModels> city = smallCity(path(""));
    const std::vector<std::wstring> before = pagingFiles(*city);
    city->write(path("c.city"));
    EXPECT_EQ(pagingFiles(*city), before) << "writing changes nothing";
    EXPECT_EQ(pagingFiles(*CityModels::load(path("c.city"))), before);

    const std::string elsewhere = path("moved");
    std::filesystem::create_directory(elsewhere);
    std::filesystem::rename(path("c.city"), elsewhere + "/c.city");
    EXPECT_EQ(NBX::StringUtils::WString2Utf8String(pagingFiles(*CityModels::load(elsewhere + "/c.city"))[0]),
              elsewhere + "/c.opaque.city");
}

TEST_F(CityModelsTest, PagingFilesElsewhereAreRefused) {
    const SO<CityModels> city = smallCity(path("other/"));
    expectPart(thrown([&] { city->write(path("c.city")); }), "a paging file stands elsewhere");
    EXPECT_FALSE(NBX::File::exists(path("c.city")));
    EXPECT_EQ(NBX::StringUtils::WString2Utf8String(pagingFiles(*city)[0]), path("other/c.opaque.city"));
}

/// A scene that was made by somebody else.
TEST_F(CityModelsTest, NamesThatLeadAwayAreRefused) {
    for (const std::wstring name :
         {L"/etc/passwd", L"../a", L"sub/a", L"http://host/a", L"a\\b", L"..", L".", L"", L"a?b", L"a#b"}) {
        SCOPED_TRACE(NBX::StringUtils::WString2Utf8String(name));
        const SO<NBX::SceneThing> scene(new NBX::SceneThing);
        scene->append(tree(0.0, {name}).get());
        NBX::ObjectSaver::write(SO<CityModels>(new CityModels(scene, {}, {}, {})).get(), path("c.city"));
        expectPart(thrown([&] { CityModels::load(path("c.city")); }), "does not stand beside it");
    }
}

/// Whatever draws a tree, its files are guarded.
TEST_F(CityModelsTest, TreesInLevelsOfDetailAreGuardedAsWell) {
    const auto cityOf = [](const std::wstring & name) {
        const SO<NBX::SceneThing> scene(new NBX::SceneThing), level(new NBX::SceneThing);
        const SO<TexturedTriangleTree> near = tree(0.0, {L"near"});
        level->append(near.get());
        const SO<NBX::LODNode> levels(new NBX::LODNode);
        levels->append(level.get(), 10.0);
        const SO<NBX::SceneThing> far(new NBX::SceneThing(level.get()));
        far->append(tree(0.0, {name}).get());
        levels->append(far.get(), 100.0);
        scene->append(levels.get());
        scene->append(near.get());
        return SO<CityModels>(new CityModels(scene, {}, {}, {}));
    };
    NBX::ObjectSaver::write(cityOf(L"/etc/hostname").get(), path("c.city"));
    expectPart(thrown([&] { CityModels::load(path("c.city")); }), "does not stand beside it");

    NBX::ObjectSaver::write(cityOf(L"bare").get(), path("c.city"));
    const SO<CityModels> city = CityModels::load(path("c.city"));
    ASSERT_TRUE(city);
    const auto wide = [&](const char * name) { return NBX::StringUtils::Utf8String2WString(path(name)); };
    EXPECT_EQ(pagingFiles(*city), (std::vector<std::wstring>{wide("near"), wide("bare")})) << "each once";
    const SO<CityModels> elsewhere = cityOf(NBX::StringUtils::Utf8String2WString(path("other/far")));
    elsewhere->trees().front()->changePagingFileName(wide("near"), 0);
    expectPart(thrown([&] { elsewhere->write(path("c.city")); }), "a paging file stands elsewhere");
}

TEST_F(CityModelsTest, WhatIsNoCityIsRefused) {
    const RecordedReports reports;
    std::ofstream(path("text")) << "a text";
    expectPart(thrown([&] { CityModels::load(path("text")); }), "is no city");
    expectPart(thrown([&] { CityModels::load(path("nothing")); }), path("nothing"));
    NBX::ObjectSaver::write(tree(0.0, {}).get(), path("tree"));
    expectPart(thrown([&] { CityModels::load(path("tree")); }), "is no city");
    const SO<CityModels> empty(new CityModels(new NBX::SceneThing, {}, {}, {}));
    EXPECT_FALSE(empty->boundingBox().isDefined());
    EXPECT_EQ(empty->modelAt({}, 1.0), nullptr);
}

TEST_F(CityModelsTest, DamagedStreamsAreRefusedOrRead) {
    expectModestReading(*smallCity());
}

class CityModelsOnAServer : public WebTest {};

TEST_F(CityModelsOnAServer, StandBesideTheirPagingFiles) {
    const std::vector<std::uint8_t> bytes = NBX::ObjectStreamWriter::write(*smallCity());
    server_.setFile("/town/c.city", {bytes.begin(), bytes.end()});
    const std::string url = NBX::StringUtils::WString2Utf8String(server_.url("/town/c.city"));
    const SO<CityModels> city = CityModels::load(url + "?key=1");
    ASSERT_TRUE(city);
    EXPECT_EQ(NBX::StringUtils::WString2Utf8String(pagingFiles(*city)[1]),
              url.substr(0, url.size() - 6) + "c.light.city?key=1");
}

/// The window fetches on one thread, and reads on another.
TEST_F(CityModelsOnAServer, AreFetchedAndReadApart) {
    const std::vector<std::uint8_t> bytes = NBX::ObjectStreamWriter::write(*smallCity());
    server_.setFile("/town/c.city", {bytes.begin(), bytes.end()});
    const std::string url = NBX::StringUtils::WString2Utf8String(server_.url("/town/c.city"));
    const SO<NBX::DataResource> fetched = CityModels::fetch(*AsyncFile::create(server_.url("/town/c.city")));
    ASSERT_TRUE(fetched);
    SO<CityModels> city;
    std::thread([&] { city = CityModels::read(fetched, url); }).join();
    ASSERT_TRUE(city);
    EXPECT_EQ(NBX::StringUtils::WString2Utf8String(pagingFiles(*city)[1]),
              url.substr(0, url.size() - 6) + "c.light.city");
}

TEST_F(CityModelsOnAServer, WhatIsNotThereIsTold) {
    const RecordedReports reports;
    const std::string url = NBX::StringUtils::WString2Utf8String(server_.url("/none.city"));
    expectPart(thrown([&] { CityModels::load(url); }), "answered");
    server_.setFile("/text", "a text");
    expectPart(thrown([&] { CityModels::load(NBX::StringUtils::WString2Utf8String(server_.url("/text"))); }),
               "is no city");
}

} // namespace
} // namespace ZMT::CORE
