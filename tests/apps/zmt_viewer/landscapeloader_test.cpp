#include "landscapeloader.h"

#include <functional>

#include <QCoreApplication>
#include <QTest>

#include <gtest/gtest.h>

#include "landscape/errors.h"
#include "support/zmtrun.h"
#include "viewertest.h"

namespace {

using Paths = std::vector<std::string>;

LandscapeOptions with(const std::string & terrain, const Paths & images) {
    LandscapeOptions options;
    options.terrain = terrain;
    options.images = images;
    return options;
}

TEST(LandscapeLoaderFiles, OneBandIsATerrainAndMoreAreAnImage) {
    const auto options = LandscapeLoader::withFiles({}, {s_everestImage, s_everest, s_detailImage});
    EXPECT_EQ(s_everest, options.terrain);
    EXPECT_EQ((Paths{s_everestImage, s_detailImage}), options.images);
}

TEST(LandscapeLoaderFiles, ImagesComeOnTopOfWhatIsThere) {
    const auto options = LandscapeLoader::withFiles(with(s_everest, {s_detailImage}), {s_everestImage});
    EXPECT_EQ(s_everest, options.terrain);
    EXPECT_EQ((Paths{s_detailImage, s_everestImage}), options.images);
}

TEST(LandscapeLoaderFiles, AnotherTerrainTakesTheImagesAway) {
    const auto options =
        LandscapeLoader::withFiles(with(s_everest, {s_detailImage}), {s_jacksboro, s_everestImage});
    EXPECT_EQ(s_jacksboro, options.terrain);
    EXPECT_EQ(Paths{s_everestImage}, options.images);
}

TEST(LandscapeLoaderFiles, LinesAndAreasGoWithTheirTerrain) {
    LandscapeOptions before = with(s_everest, {});
    before.breakLines = {"lines.geojson"};
    before.draped = {"areas.geojson"};
    before.vectors = {"both.geojson"};
    const auto more = LandscapeLoader::withFiles(before, {s_everestImage});
    EXPECT_EQ(Paths{"lines.geojson"}, more.breakLines);
    EXPECT_EQ(Paths{"areas.geojson"}, more.draped);
    const auto another = LandscapeLoader::withFiles(before, {s_jacksboro});
    EXPECT_TRUE(another.breakLines.empty());
    EXPECT_TRUE(another.draped.empty());
    EXPECT_TRUE(another.vectors.empty());
    before.terrain.clear();
    const auto first = LandscapeLoader::withFiles(before, {s_everest});
    EXPECT_EQ(Paths{"lines.geojson"}, first.breakLines);
}

TEST(LandscapeLoaderFiles, FirstTerrainKeepsTheImagesOfTheCommandLine) {
    const auto options = LandscapeLoader::withFiles(with("", {s_detailImage}), {s_everest});
    EXPECT_EQ(Paths{s_detailImage}, options.images);
}

TEST(LandscapeLoaderFiles, OfTwoTerrainsTheSecondIsAnImage) {
    const auto options = LandscapeLoader::withFiles({}, {s_everest, s_jacksboro});
    EXPECT_EQ(s_everest, options.terrain);
    EXPECT_EQ(Paths{s_jacksboro}, options.images);
}

TEST(LandscapeLoaderFiles, TexturePyramidIsAnImage) {
    const RunFolder folder;
    const std::string pyramid = folder.out("image.ztp");
    ASSERT_EQ(0, runProcess(ZMT_EXECUTABLE, {"build", "pyramid", s_everestImage, pyramid}, folder).status);
    const auto options = LandscapeLoader::withFiles({}, {pyramid, s_everest});
    EXPECT_EQ(s_everest, options.terrain);
    EXPECT_EQ(Paths{pyramid}, options.images);
}

TEST(LandscapeLoaderFiles, TexturesThatWereWrittenWithAKeyAreImages) {
    const RunFolder folder;
    const std::string terrain = folder.out("t.ztt"), texture = folder.out("texture.bin");
    ASSERT_EQ(
        0, runProcess(ZMT_EXECUTABLE, {"build", "terrain", s_everest, terrain, "--lighting", "none"}, folder)
               .status);
    ASSERT_EQ(0,
              runProcess(ZMT_EXECUTABLE,
                         {"build", "texture", s_everestImage, texture, "--terrain", terrain, "--key", "77"},
                         folder)
                  .status);
    LandscapeOptions options;
    options.key = 77;
    EXPECT_EQ(Paths{texture}, LandscapeLoader::withFiles(options, {terrain, texture}).images);
    EXPECT_THROW(LandscapeLoader::withFiles({}, {terrain, texture}), std::exception);
}

TEST(LandscapeLoaderFiles, RefusesWhatCannotBe) {
    EXPECT_THROW(LandscapeLoader::withFiles({}, {s_everestImage}), DataError);
    EXPECT_THROW(LandscapeLoader::withFiles({}, {"/nowhere/at/all.tif"}), std::exception);
    try {
        LandscapeLoader::withFiles({}, {ZMT_DATA_DIR "/../tests/data/models/prism.obj"});
        ADD_FAILURE() << "it is a model";
    } catch (const DataError & error) {
        EXPECT_NE(std::string(error.what()).find("zmt build city"), std::string::npos) << error.what();
    }
    const RunFolder folder;
    EXPECT_THROW(LandscapeLoader::withFiles({}, {folder.write("bad.tif", "no raster")}), std::exception);
    const std::string areas =
        folder.write("areas.tif", R"({"type":"Polygon","coordinates":[[[10,10],[11,10],[11,11],[10,10]]]})");
    try {
        LandscapeLoader::withFiles({}, {areas});
        ADD_FAILURE() << "areas are no landscape";
    } catch (const DataError & error) {
        EXPECT_NE(std::string::npos, std::string(error.what()).find("height raster")) << error.what();
    }
}

TEST(LandscapeLoaderFiles, VectorsAreOverlaysUnlessTheyAreToShapeTheTerrain) {
    const RunFolder folder;
    const std::string areas =
        folder.write("areas.tif", R"({"type":"Polygon","coordinates":[[[10,10],[11,10],[11,11],[10,10]]]})");
    LandscapeOptions before = with(s_everest, {});
    before.overlays = {{"roads.gpkg", "main", "width=3"}};
    for (const auto & options : {LandscapeLoader::withFiles(before, {areas}),
                                 LandscapeLoader::withFiles(before, {areas}, VectorUse::Overlay)}) {
        ASSERT_EQ(2U, options.overlays.size());
        EXPECT_EQ("main", options.overlays[0].layer) << "those that were there stay below";
        EXPECT_EQ(areas, options.overlays[1].file);
        EXPECT_TRUE(options.vectors.empty());
    }
    const auto shaped = LandscapeLoader::withFiles(before, {areas}, VectorUse::Shape);
    EXPECT_EQ(1U, shaped.overlays.size());
    EXPECT_EQ(Paths{areas}, shaped.vectors);
    const auto both = LandscapeLoader::withFiles({}, {areas, s_everest});
    ASSERT_EQ(1U, both.overlays.size()) << "the order does not matter";
    EXPECT_EQ(areas, both.overlays[0].file);
}

TEST(LandscapeLoaderFiles, OverlaysAndTracksGoWithTheirTerrain) {
    LandscapeOptions before = with(s_everest, {});
    before.overlays = {{"roads.gpkg", "", ""}};
    before.tracks = {{"way.gpx"}, "+5"};
    const auto another = LandscapeLoader::withFiles(before, {s_jacksboro});
    EXPECT_TRUE(another.overlays.empty());
    EXPECT_TRUE(another.tracks.files.empty());
    EXPECT_EQ("", another.tracks.time);
    before.terrain.clear();
    const auto first = LandscapeLoader::withFiles(before, {s_everest});
    EXPECT_EQ(1U, first.overlays.size());
    EXPECT_EQ(1U, first.tracks.files.size());
}

TEST(LandscapeLoaderFiles, AGpxFileWithTimesIsAnOverlayAndATrack) {
    const std::string way = ZMT_DATA_DIR "/everest_way.gpx";
    const auto options = LandscapeLoader::withFiles(with(s_everest, {}), {way});
    EXPECT_EQ(1U, options.overlays.size());
    EXPECT_EQ(Paths{way}, options.tracks.files);
    const auto again = LandscapeLoader::withFiles(options, {way});
    EXPECT_EQ(2U, again.overlays.size());
    EXPECT_EQ(Paths{way}, again.tracks.files) << "played once";
    EXPECT_TRUE(
        LandscapeLoader::withFiles(with(s_everest, {}), {way}, VectorUse::Shape).tracks.files.empty());
    const RunFolder folder;
    const std::string timeless = folder.write(
        "timeless.gpx",
        R"(<gpx version="1.1"><trk><trkseg><trkpt lat="27.9" lon="86.8"/></trkseg></trk></gpx>)");
    EXPECT_TRUE(LandscapeLoader::withFiles(with(s_everest, {}), {timeless}).tracks.files.empty());
}

/// Counts what a loader says.
struct Ear {
    explicit Ear(LandscapeLoader & loader) {
        QObject::connect(&loader, &LandscapeLoader::loaded, &loader,
                         [this](const std::shared_ptr<Landscape> & l, const LandscapeOptions & o) {
                             landscape = l;
                             options = o;
                             ++loaded;
                         });
        QObject::connect(&loader, &LandscapeLoader::failed, &loader, [this](const QString & text) {
            message = text.toStdString();
            ++failed;
        });
        QObject::connect(&loader, &LandscapeLoader::canceled, &loader, [this] { ++canceled; });
        QObject::connect(&loader, &LandscapeLoader::progressed, &loader,
                         [this](const QString &, const QString &, double share) {
                             EXPECT_GE(share, 0.0);
                             EXPECT_LE(share, 1.0);
                             ++progressed;
                         });
    }
    bool waitForEnd() const {
        return QTest::qWaitFor([&] { return loaded + failed + canceled > 0; }, 60'000);
    }

    std::shared_ptr<Landscape> landscape;
    LandscapeOptions options;
    std::string message;
    int loaded = 0, failed = 0, canceled = 0, progressed = 0;
};

TEST(LandscapeLoader, LoadsAndTellsItsProgress) {
    LandscapeLoader loader;
    Ear ear(loader);
    EXPECT_FALSE(loader.isRunning());
    EXPECT_TRUE(loader.start({}, {s_jacksboro}));
    EXPECT_TRUE(loader.isRunning());
    EXPECT_FALSE(loader.start({}, {s_everest})) << "one load runs already";
    ASSERT_TRUE(ear.waitForEnd());
    EXPECT_FALSE(loader.isRunning());
    EXPECT_EQ(1, ear.loaded);
    EXPECT_EQ(0, ear.failed + ear.canceled);
    EXPECT_GT(ear.progressed, 0);
    ASSERT_TRUE(ear.landscape);
    EXPECT_EQ(s_jacksboro, ear.options.terrain);
}

TEST(LandscapeLoader, LaysImagesOnWhatIsShown) {
    const auto shown = std::make_shared<Landscape>(with(s_everest, {s_everestImage}));
    LandscapeLoader loader;
    {
        Ear ear(loader);
        loader.start(with(s_everest, {s_everestImage}), {s_detailImage}, shown);
        ASSERT_TRUE(ear.waitForEnd());
        EXPECT_EQ(shown, ear.landscape);
        EXPECT_EQ(4U, shown->layers().size());
        EXPECT_EQ((Paths{s_everestImage, s_detailImage}), ear.options.images);
        loader.disconnect();
    }
    // A terrain is built anew, also from the same file.
    Ear again(loader);
    loader.start(with(s_everest, {}), {s_everest}, shown);
    ASSERT_TRUE(again.waitForEnd());
    EXPECT_EQ(1, again.loaded);
    EXPECT_NE(shown, again.landscape);
}

TEST(LandscapeLoader, LaysNothingOnWhatIsShownWhenItFailsOrIsCanceled) {
    const RunFolder folder;
    const std::string bad = folder.write("bad.ztp", "no image");
    const auto shown = std::make_shared<Landscape>(with(s_everest, {}));
    LandscapeLoader loader;
    for (const bool isCanceled : {false, true}) {
        Ear ear(loader);
        loader.start(with(s_everest, {}), {s_everestImage, isCanceled ? s_detailImage : bad}, shown);
        if (isCanceled) loader.cancel();
        ASSERT_TRUE(ear.waitForEnd());
        EXPECT_EQ(isCanceled ? 1 : 0, ear.canceled);
        EXPECT_EQ(isCanceled ? 0 : 1, ear.failed);
        EXPECT_EQ(2U, shown->layers().size());
        loader.disconnect();
    }
}

TEST(LandscapeLoader, TellsWhatIsWrong) {
    LandscapeLoader loader;
    Ear ear(loader);
    loader.start({}, {"/nowhere/at/all.tif"});
    ASSERT_TRUE(ear.waitForEnd());
    EXPECT_EQ(1, ear.failed);
    EXPECT_EQ(0, ear.loaded + ear.canceled);
    EXPECT_NE(std::string::npos, ear.message.find("/nowhere/at/all.tif"));
}

TEST(LandscapeLoader, EndsWhenItIsCanceledAndMayStartAgain) {
    LandscapeLoader loader;
    {
        Ear ear(loader);
        loader.start({}, {s_everest});
        loader.cancel();
        ASSERT_TRUE(ear.waitForEnd());
        EXPECT_EQ(1, ear.canceled);
        EXPECT_EQ(0, ear.loaded + ear.failed);
        loader.disconnect();
    }
    Ear again(loader);
    EXPECT_TRUE(loader.start({}, {s_jacksboro}));
    ASSERT_TRUE(again.waitForEnd());
    EXPECT_EQ(1, again.loaded);
}

TEST(LandscapeLoader, MayDieWhileItLoads) {
    LandscapeLoader loader;
    loader.start({}, {s_everest});
}

TEST(LandscapeLoader, GivesTheDisplayBack) {
    const auto * before = NBX::Progress::setDisplay(nullptr);
    { const LandscapeLoader loader; }
    EXPECT_EQ(nullptr, NBX::Progress::setDisplay(const_cast<NBX::ProgressDisplay *>(before)));
}

TEST(LandscapeLoader, OfTwoTheOneThatStaysShowsProgress) {
    auto * const before = NBX::Progress::setDisplay(nullptr);
    auto first = std::make_unique<LandscapeLoader>();
    {
        LandscapeLoader second;
        first.reset();
        Ear ear(second);
        second.start({}, {s_jacksboro});
        EXPECT_TRUE(ear.waitForEnd());
        EXPECT_GT(ear.progressed, 0);
    }
    EXPECT_EQ(nullptr, NBX::Progress::setDisplay(before)) << "none of them is there any more";
}

} // namespace
