#include <zmt/raster/gdal/projectionfile.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/stat.h>

#include "geotiff.h"
#include "wktof.h"

#include <nbx/object/exception.h>

namespace {

using NBX::AtomicFileWriter;
using ZMT::RASTER::GeoReference;
using ZMT::RASTER::ProjectionFile;
namespace fs = std::filesystem;

class ProjectionFileTest : public testing::Test {
protected:
    void put(const std::string & wkt, bool fails = false) {
        ProjectionFile(main, wkt).commitWith([&] {
            if (fails) throw NBX::IOException(L"full");
            directory.write("a.ztp", "data");
        });
    }
    std::string bytes() const {
        std::ostringstream text;
        text << std::ifstream(directory.file("a.prj"), std::ios::binary).rdbuf();
        return text.str();
    }
    bool exists() const { return fs::exists(directory.file("a.prj")); }

    TestDirectory directory;
    std::string main = directory.file("a.ztp");
};

TEST_F(ProjectionFileTest, ItsNameIsThatOfTheFileWithAnotherSuffix) {
    const std::string folder = fs::canonical(directory.file(".")).string() + "/";
    for (const auto & [name, expected] : {std::pair("a.ztp", "a.prj"), std::pair("a", "a.prj"),
                                          std::pair("a.b.ztp", "a.b.prj"), std::pair("a.prj", "a.prj")})
        EXPECT_EQ(folder + expected, ProjectionFile::pathFor(directory.file(name)));
    fs::create_directory(directory.file("far"));
    fs::create_symlink("far/b.ztp", directory.file("link.ztp"));
    EXPECT_EQ(folder + "far/b.prj", ProjectionFile::pathFor(directory.file("link.ztp")));
}

TEST_F(ProjectionFileTest, WhatIsWrittenIsRead) {
    EXPECT_EQ("", ProjectionFile::read(main).wkt) << "nothing is there yet";
    EXPECT_FALSE(ProjectionFile::read(main).isGeoreferenced);
    for (const char * name : {"EPSG:4326", "EPSG:32645"}) {
        put(wktOf(name));
        const GeoReference read = ProjectionFile::read(main);
        EXPECT_TRUE(read.isGeoreferenced);
        EXPECT_EQ(std::string(name) == "EPSG:4326", read.isGeographic);
        OGRSpatialReference expected, found;
        expected.SetFromUserInput(name);
        found.importFromWkt(read.wkt.c_str());
        EXPECT_TRUE(expected.IsSame(&found));
    }
}

TEST_F(ProjectionFileTest, WithoutASystemTheFormerFileGoes) {
    put(wktOf("EPSG:4326"));
    put("");
    EXPECT_FALSE(exists());
    put("");
    EXPECT_FALSE(exists());
    EXPECT_TRUE(fs::exists(main));
}

TEST_F(ProjectionFileTest, WhereTheOtherFileFailsAllIsAsBefore) {
    EXPECT_THROW(put(wktOf("EPSG:4326"), true), NBX::IOException);
    EXPECT_FALSE(exists());
    put(wktOf("EPSG:4326"));
    const std::string before = bytes();
    EXPECT_THROW(put(wktOf("EPSG:32645"), true), NBX::IOException);
    EXPECT_EQ(before, bytes());
    EXPECT_THROW(put("", true), NBX::IOException);
    EXPECT_EQ(before, bytes());
}

TEST_F(ProjectionFileTest, WithoutCommitNothingChanges) {
    { const ProjectionFile unused(main, wktOf("EPSG:4326")); }
    EXPECT_FALSE(exists());
    put(wktOf("EPSG:4326"));
    { const ProjectionFile unused(main, ""); }
    EXPECT_TRUE(exists());
}

/// As other programs write them, which share the file.
TEST_F(ProjectionFileTest, AFileThatSaysTheSameIsNotTouched) {
    OGRSpatialReference system;
    system.SetFromUserInput("EPSG:32645");
    char * text = nullptr;
    const char * const options[] = {"FORMAT=WKT1_GDAL", "MULTILINE=YES", nullptr};
    system.exportToWkt(&text, options);
    directory.write("a.prj", text);
    const std::string before = text;
    CPLFree(text);
    ASSERT_EQ(0, ::chmod(directory.file("a.prj").c_str(), 0444));
    put(wktOf("EPSG:32645"));
    EXPECT_EQ(before, bytes());
    EXPECT_EQ("WGS 84 / UTM zone 45N", ProjectionFile::read(main).name);
    for (const std::string & other : {wktOf("EPSG:4326"), std::string()})
        EXPECT_THROW(put(other), NBX::IOException) << "write protected";
    EXPECT_EQ(before, bytes());
}

TEST_F(ProjectionFileTest, TheSystemOfAnotherFileStays) {
    put(wktOf("EPSG:32645"));
    directory.write("a.shp", "shapes");
    const std::string before = bytes();
    EXPECT_THROW(put(wktOf("EPSG:4326")), NBX::IOException);
    EXPECT_THROW(put(""), NBX::IOException);
    EXPECT_NO_THROW(put(wktOf("EPSG:32645")));
    EXPECT_EQ(before, bytes());
}

TEST_F(ProjectionFileTest, WhatHoldsNoSystemIsTold) {
    for (const char * content : {"", "no system", "EPSG:4326", "/etc/passwd", "GEOGCS[", "PROJCS[\"x\"]]]"}) {
        directory.write("a.prj", content);
        try {
            ProjectionFile::read(main);
            ADD_FAILURE() << content;
        } catch (const NBX::InputException & error) {
            EXPECT_NE(std::string::npos, std::string(error.what()).find("a.prj")) << error.what();
            EXPECT_EQ(std::string::npos, std::string(error.what()).find('\n')) << error.what();
        }
    }
    put(wktOf("EPSG:4326"));
    EXPECT_TRUE(ProjectionFile::read(main).isGeographic) << "what is damaged is replaced";
}

TEST_F(ProjectionFileTest, AFolderIsNoFile) {
    fs::create_directory(directory.file("a.prj"));
    EXPECT_THROW(ProjectionFile::read(main), NBX::IOException);
    for (const std::string & wkt : {wktOf("EPSG:4326"), std::string()})
        EXPECT_THROW(put(wkt), NBX::IOException);
    EXPECT_TRUE(exists());
    EXPECT_THROW(ProjectionFile(directory.file("b.prj"), ""), NBX::IOException) << "its own file";
}

} // namespace
