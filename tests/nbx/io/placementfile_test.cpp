#include <nbx/io/modelplacement.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include <gtest/gtest.h>
#include <unistd.h>

#include <nbx/data/file.h>
#include <nbx/object/exception.h>

#include <nbx/object/nbxtime.h>

#include "nbx/io/unpackedarchive.h"
#include "smallzip.h"

using namespace NBX;

namespace {

namespace fs = std::filesystem;

std::string model(const std::string & inside, const std::string & name = "house") {
    return "<Placemark><name>" + name + "</name><Model>" + inside + "</Model></Placemark>";
}

const std::string s_location =
    "<Location><longitude> 13.5 </longitude><latitude>52.25</latitude><altitude>34.5</altitude></Location>";
const std::string s_link = "<Link><href>sub/House.dae</href></Link>";

std::string kml(const std::string & inside) {
    return "<?xml version=\"1.0\"?><kml xmlns=\"http://www.opengis.net/kml/2.2\"><Document>" + inside +
           "</Document></kml>";
}

class PlacementFileTest : public testing::Test {
protected:
    PlacementFileTest() {
        top_ = File::temporaryFileName("nbx-placements-");
        File::remove(top_);
        fs::create_directories(top_ + "/kml/sub");
        fs::create_directories(top_ + "/temporary");
        write("kml/sub/house.dae", "x");
        write("outside.dae", "x");
        ::setenv("TMPDIR", (top_ + "/temporary").c_str(), 1);
    }
    ~PlacementFileTest() override {
        ::unsetenv("TMPDIR");
        fs::remove_all(top_);
    }

    std::string write(const std::string & name, const std::string & bytes) const {
        std::ofstream(top_ + "/" + name, std::ios::binary) << bytes;
        return top_ + "/" + name;
    }
    ModelPlacements read(const std::string & inside) const {
        return PlacementFile::read(write("kml/doc.kml", kml(inside)));
    }
    std::string leftOut(const std::string & inside) const {
        const ModelPlacements placements = read(inside);
        EXPECT_TRUE(placements.models.empty());
        EXPECT_EQ(placements.leftOut.size(), 1U);
        return placements.leftOut.empty() ? "" : placements.leftOut[0];
    }
    std::string failureOf(const std::string & path) const {
        try {
            PlacementFile::read(path);
        } catch (const InputException & failure) {
            return failure.what();
        }
        return "none";
    }
    bool isTemporaryEmpty() const { return fs::is_empty(top_ + "/temporary"); }

    std::string top_;
};

} // namespace

TEST_F(PlacementFileTest, ReadsAllThatAPlacementHas) {
    const ModelPlacements placements =
        read(model("<altitudeMode>absolute</altitudeMode>" + s_location +
                   "<Orientation><heading>10</heading><tilt>-20.5</tilt><roll>+3e1</roll></Orientation>"
                   "<Scale><x>1</x><y>2</y><z>-3</z></Scale>" +
                   s_link));
    ASSERT_EQ(placements.models.size(), 1U);
    const ModelPlacement & placed = placements.models[0];
    EXPECT_EQ(placed.model, fs::canonical(top_ + "/kml/sub/house.dae"));
    EXPECT_EQ(placed.name, "house");
    EXPECT_EQ(placed.longitude, 13.5);
    EXPECT_EQ(placed.latitude, 52.25);
    EXPECT_EQ(placed.altitude, 34.5);
    EXPECT_EQ(placed.altitudeMode, ModelPlacement::AM_Absolute);
    EXPECT_EQ(placed.heading, 10.0);
    EXPECT_EQ(placed.tilt, -20.5);
    EXPECT_EQ(placed.roll, 30.0);
    EXPECT_EQ(placed.scale, (Vector3Base<double>(1, 2, -3)));
    EXPECT_TRUE(placements.leftOut.empty());
}

TEST_F(PlacementFileTest, WhatIsNotSaidHasItsDefault) {
    const ModelPlacements placements = read(model(s_location + s_link + "<Scale><y>2</y></Scale>"));
    ASSERT_EQ(placements.models.size(), 1U);
    const ModelPlacement & placed = placements.models[0];
    EXPECT_EQ(placed.altitudeMode, ModelPlacement::AM_ClampToGround);
    EXPECT_EQ(placed.heading, 0.0);
    EXPECT_EQ(placed.scale, (Vector3Base<double>(1, 2, 1)));
    EXPECT_EQ(read(model(s_location + s_link + "<altitudeMode>relativeToGround</altitudeMode>"))
                  .models.at(0)
                  .altitudeMode,
              ModelPlacement::AM_RelativeToGround);
}

TEST_F(PlacementFileTest, FindsModelsInFoldersAndUnderAnyPrefix) {
    const std::string one = model(s_location + s_link, "one");
    const ModelPlacements placements =
        read(one + "<Folder><Folder>" + model(s_location + s_link, "two") + "</Folder><Document>" +
             model(s_location + s_link, "three") + "</Document></Folder>");
    ASSERT_EQ(placements.models.size(), 3U);
    EXPECT_EQ(placements.models[0].name, "one");
    EXPECT_EQ(placements.models[1].name, "two");
    EXPECT_EQ(placements.models[2].name, "three");
    const std::string path = write(
        "kml/p.kml", "<k:kml xmlns:k=\"http://www.opengis.net/kml/2.2\"><k:Placemark><k:name>n</k:name>"
                     "<k:MultiGeometry><k:Model><k:Location><k:longitude>1</k:longitude><k:latitude>2"
                     "</k:latitude></k:Location><k:Link><k:href>sub\\HOUSE.DAE</k:href></k:Link></k:Model>"
                     "</k:MultiGeometry></k:Placemark></k:kml>");
    const ModelPlacements prefixed = PlacementFile::read(path);
    ASSERT_EQ(prefixed.models.size(), 1U);
    EXPECT_EQ(prefixed.models[0].name, "n");
    EXPECT_EQ(prefixed.models[0].latitude, 2.0);
}

TEST_F(PlacementFileTest, WhatLiesElsewhereIsLeftOutWithALine) {
    const auto linked = [](const std::string & href) {
        return model(s_location + "<Link><href>" + href + "</href></Link>");
    };
    EXPECT_EQ(leftOut(linked("none.dae")), "model house is left out: there is no file none.dae");
    EXPECT_EQ(leftOut(linked("../outside.dae")),
              "model house is left out: its path leads out of the folder, ../outside.dae");
    EXPECT_NE(leftOut(linked("http://host/house.dae")).find("it lies on a server"), std::string::npos);
    EXPECT_EQ(leftOut(model(s_location)), "model house is left out: it names no file");
    EXPECT_EQ(
        leftOut("<NetworkLink><name>more</name><Link><href>http://host/a.kml</href></Link></NetworkLink>"),
        "network link more is left out: only files are read");
}

TEST_F(PlacementFileTest, ModelsThatAreGivenAreFoundByTheirNameWhereverTheyLie) {
    const auto linked = [](const std::string & href) {
        return model(s_location + "<Link><href>" + href + "</href></Link>");
    };
    const std::vector<std::string> given = {top_ + "/outside.dae", "elsewhere/a b.obj"};
    const std::string path =
        write("kml/doc.kml",
              kml(linked("../outside.dae") + linked("C:\\models\\outside.dae") + linked("a%20b.obj") +
                  linked("sub/house.dae") + linked("OUTSIDE.dae") + linked("outside.dae/")));
    const ModelPlacements placements = PlacementFile::read(path, given);
    ASSERT_EQ(placements.models.size(), 4U);
    EXPECT_EQ(placements.models[0].model, given[0]);
    EXPECT_EQ(placements.models[1].model, given[0]);
    EXPECT_EQ(placements.models[2].model, given[1]);
    EXPECT_EQ(placements.models[3].model, fs::canonical(top_ + "/kml/sub/house.dae"));
    EXPECT_EQ(placements.leftOut.size(), 2U);
    EXPECT_EQ(PlacementFile::read(path).models.size(), 1U);
}

TEST_F(PlacementFileTest, TwoGivenModelsOfOneNameAreRefused) {
    const std::string path = write("kml/doc.kml", kml(""));
    EXPECT_NO_THROW(PlacementFile::read(path, {"a/house.dae", "b/House.dae"}));
    try {
        PlacementFile::read(path, {"a/house.dae", "b/house.dae"});
        ADD_FAILURE() << "read";
    } catch (const InputException & failure) {
        const std::string line = failure.what();
        EXPECT_NE(line.find("has the file name of a/house.dae"), std::string::npos) << line;
        EXPECT_NE(line.find("b/house.dae"), std::string::npos) << line;
    }
}

TEST_F(PlacementFileTest, ManyModelsSideBySideAreReadQuicklyAndToldInFewLines) {
    std::string all = "<Placemark>";
    for (int i = 0; i < 60000; ++i)
        all += "<Model/>";
    const double start = NBXTime::now();
    const ModelPlacements placements = read(all + "<name>last</name></Placemark>");
    EXPECT_LT(NBXTime::now() - start, 10.0);
    EXPECT_TRUE(placements.models.empty());
    ASSERT_EQ(placements.leftOut.size(), 1001U);
    EXPECT_EQ(placements.leftOut[999], "model last is left out: it names no file");
    EXPECT_EQ(placements.leftOut[1000], "59000 more models and network links are left out");
}

TEST_F(PlacementFileTest, TheNameIsThatOfAPlacemarkNearBy) {
    const auto nameBelow = [&](int levels) {
        std::string begin, end;
        for (int i = 0; i < levels; ++i) {
            begin += "<MultiGeometry>";
            end += "</MultiGeometry>";
        }
        return read("<Placemark><name>far</name>" + begin + "<Model id=\"own\">" + s_location + s_link +
                    "</Model>" + end + "</Placemark>")
            .models.at(0)
            .name;
    };
    EXPECT_EQ(nameBelow(31), "far");
    EXPECT_EQ(nameBelow(32), "own");
}

TEST_F(PlacementFileTest, MoreModelsThanCanBePlacedAreRefused) {
    std::string all;
    for (unsigned i = 0; i <= PlacementFile::maxModels; ++i)
        all += "<Model/>";
    EXPECT_NE(failureOf(write("many.kml", kml(all))).find("holds more than 1048576 models; divide it"),
              std::string::npos);
}

TEST_F(PlacementFileTest, NamesAreOneLineWithoutControlCharacters) {
    EXPECT_EQ(read(model(s_location + s_link, "a\nb\x1B[31mc")).models.at(0).name, "a b [31mc");
    EXPECT_EQ(read("<Model id=\"x&#27;&#10;y\">" + s_location + s_link + "</Model>").models.at(0).name,
              "x  y");
}

TEST_F(PlacementFileTest, PlacesThatAreNoneAreLeftOutWithALine) {
    const std::string line = "model house is left out: its place is no number, or not on the earth";
    const auto at = [](const std::string & longitude, const std::string & latitude) {
        return model("<Location><longitude>" + longitude + "</longitude><latitude>" + latitude +
                     "</latitude></Location>" + s_link);
    };
    for (const char * number : {"", " ", "x", "1,5", "nan", "inf", "1e999", "1 2", "361"})
        EXPECT_EQ(leftOut(at(number, "0")), line) << number;
    EXPECT_EQ(leftOut(at("0", "90.1")), line);
    EXPECT_EQ(leftOut(at("0", "")), line);
    EXPECT_EQ(leftOut(model(s_link)), line);
    EXPECT_EQ(leftOut(model("<Location><longitude>1</longitude></Location>" + s_link)), line);
    EXPECT_EQ(leftOut(model(s_location + s_link + "<Scale><x>0</x></Scale>")), line);
    EXPECT_EQ(leftOut(model(s_location + s_link + "<Orientation><tilt>up</tilt></Orientation>")), line);
    EXPECT_EQ(leftOut(model(s_location + s_link + "<gx:altitudeMode>clampToSeaFloor</gx:altitudeMode>")),
              "model house is left out: its altitude counts from the ground of the sea");
}

TEST_F(PlacementFileTest, ADocumentOfOtherThingsHasNoModels) {
    const ModelPlacements placements = read("<Placemark><Point/></Placemark>");
    EXPECT_TRUE(placements.models.empty());
    EXPECT_TRUE(placements.leftOut.empty());
}

TEST_F(PlacementFileTest, WhatIsNoKmlIsRefusedInOneLine) {
    EXPECT_TRUE(PlacementFile::recognizes("a.KML"));
    EXPECT_TRUE(PlacementFile::recognizes("a.kmz"));
    EXPECT_FALSE(PlacementFile::recognizes("a.kmlx"));
    EXPECT_NE(failureOf(top_ + "/none.kml").find("file not found"), std::string::npos);
    EXPECT_NE(failureOf(write("a.kml", "<html></html>")).find("is no KML"), std::string::npos);
    EXPECT_NE(failureOf(write("a.kml", "")).find("is no sound XML"), std::string::npos);
    EXPECT_NE(failureOf(write("a.kmz", "no archive")).find("is no ZIP archive"), std::string::npos);
    EXPECT_NE(failureOf(write("a.kmz", zipOf({{"a.dae", "x"}}))).find("holds no KML"), std::string::npos);
    EXPECT_TRUE(isTemporaryEmpty());
}

TEST_F(PlacementFileTest, EveryBeginningAndChangedBytesAreHarmless) {
    const std::string whole = kml(model(s_location + s_link));
    const std::string archive = zipOf({{"doc.kml", whole}, {"sub/house.dae", "x"}});
    const auto look = [&](const char * name, const std::string & bytes) {
        try {
            PlacementFile::read(write(name, bytes));
        } catch (const Exception & failure) {
            EXPECT_EQ(std::string(failure.what()).find('\n'), std::string::npos);
        }
    };
    for (std::size_t length = 0; length < whole.size(); ++length)
        look("kml/a.kml", whole.substr(0, length));
    for (std::size_t length = 0; length < archive.size(); ++length)
        look("a.kmz", archive.substr(0, length));
    std::mt19937 random(3);
    for (int i = 0; i < 1000; ++i)
        for (const auto & [name, bytes] : {std::pair("kml/a.kml", whole), std::pair("a.kmz", archive)}) {
            std::string changed = bytes;
            for (unsigned k = 0; k <= random() % 3; ++k)
                changed[random() % changed.size()] = static_cast<char>(random());
            look(name, changed);
        }
    EXPECT_TRUE(isTemporaryEmpty());
}

TEST_F(PlacementFileTest, ElementsWithinElementsDoNotExhaustTheStack) {
    std::string deep;
    for (int i = 0; i < 1000000; ++i)
        deep += "<Folder>";
    EXPECT_NE(failureOf(write("deep.kml", "<kml>" + deep)).find("is no sound XML"), std::string::npos);
    for (int i = 0; i < 1000000; ++i)
        deep += "</Folder>";
    EXPECT_TRUE(PlacementFile::read(write("deep.kml", kml(deep))).models.empty());
}

TEST_F(PlacementFileTest, ArchivesAreUnpackedForAsLongAsTheirFilesAreHeld) {
    const std::string path = write("a.kmz", zipOf({{"other.kml", kml("")},
                                                   {"doc.kml", kml(model(s_location + s_link))},
                                                   {"sub/", ""},
                                                   {"sub/HOUSE.dae", "model"}}));
    {
        const ModelPlacements placements = PlacementFile::read(path);
        ASSERT_EQ(placements.models.size(), 1U);
        const auto bytes = File::contents(placements.models[0].model);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "model");
        EXPECT_TRUE(placements.models[0].model.starts_with(fs::canonical(top_ + "/temporary").string()));
        EXPECT_TRUE(placements.leftOut.empty());
    }
    EXPECT_TRUE(isTemporaryEmpty());
}

TEST_F(PlacementFileTest, EntriesThatLeadElsewhereAreLeftOut) {
    const SO<UnpackedArchive> archive(new UnpackedArchive(write("a.zip", zipOf({{"../escaped", "x"},
                                                                                {"/tmp/absolute", "x"},
                                                                                {"a/../../b", "x"},
                                                                                {"a\\b", "x"},
                                                                                {"a", "x"},
                                                                                {"a/b", "x"},
                                                                                {"a", "y"},
                                                                                {"./c", "x"},
                                                                                {"good", "x"}}))));
    EXPECT_EQ(archive->names(), (std::vector<std::string>{"a", "good"}));
    EXPECT_EQ(archive->leftOut().size(), 7U);
    EXPECT_FALSE(fs::exists(top_ + "/temporary/escaped"));
    EXPECT_EQ(archive->leftOut()[0], "file ../escaped is left out: its name leads elsewhere");
}

TEST_F(PlacementFileTest, EntriesWithNamesThatNoFolderHoldsAreLeftOut) {
    const std::string longest(255, 'l'), tooLong(256, 't');
    const SO<UnpackedArchive> archive(new UnpackedArchive(write(
        "a.zip",
        zipOf({{tooLong, "x"}, {longest, "x"}, {tooLong + "/a", "x"}, {"b/" + tooLong, "x"}, {"c", "x"}}))));
    EXPECT_EQ(archive->names(), (std::vector<std::string>{longest, "c"}));
    ASSERT_EQ(archive->leftOut().size(), 3U);
    for (const std::string & line : archive->leftOut())
        EXPECT_NE(line.find(" is left out: its name is too long"), std::string::npos) << line;
}

TEST_F(PlacementFileTest, ArchivesThatGrowTooMuchAreRefusedAndLeaveNothing) {
    // Larger than a thousandfold is no honest archive of this size.
    const std::string path = write("a.zip", zipOf({{"zeros", std::string(300000, '\0')}}, true));
    EXPECT_NO_THROW(SO<UnpackedArchive>(new UnpackedArchive(path)));
    const std::string bomb = write("b.zip", zipOf({{"zeros", std::string(2000000, '\0')}}, true, 2000));
    try {
        SO<UnpackedArchive>(new UnpackedArchive(bomb));
        ADD_FAILURE() << "unpacked";
    } catch (const InputException & failure) {
        EXPECT_NE(std::string(failure.what()).find("holds more bytes than may be unpacked"),
                  std::string::npos);
    }
    EXPECT_TRUE(isTemporaryEmpty());
}
