#include <zmt/raster/gdal/vector/trackfile.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include <unistd.h>

#include <gtest/gtest.h>

#include <nbx/object/exception.h>
#include <zmt/raster/gdal/coordinatesystem.h>
#include <zmt/raster/vector/isotime.h>

#include "support/thrownwords.h"

namespace {

using namespace ZMT::RASTER;

class TrackFileTest : public testing::Test {
protected:
    std::string inFolder(const std::string & name) const { return folder_ + "/" + name; }
    TrackFileTest() { std::filesystem::create_directory(folder_); }
    ~TrackFileTest() override { std::filesystem::remove_all(folder_); }
    std::string write(const std::string & body) {
        const std::string path = inFolder("walk.gpx");
        std::ofstream(path) << "<?xml version='1.0'?><gpx version='1.1' creator='t' "
                               "xmlns='http://www.topografix.com/GPX/1/1'>"
                            << body << "</gpx>";
        return path;
    }
    static std::string point(double longitude, double latitude, const std::string & inside) {
        return "<trkpt lat='" + std::to_string(latitude) + "' lon='" + std::to_string(longitude) + "'>" +
               inside + "</trkpt>";
    }

private:
    const std::string folder_ = testing::TempDir() + "zmt_tracks_" + std::to_string(::getpid());
};

TEST_F(TrackFileTest, SegmentsArePiecesWithTimesAndHeights) {
    const std::string path = write(
        "<wpt lat='1' lon='2'><time>2024-05-01T00:00:00Z</time></wpt><trk><trkseg>" +
        point(86.5, 27.5, "<ele>5000.5</ele><time>2024-05-01T06:00:00.250Z</time>") +
        point(86.6, 27.6, "<ele>5100</ele><time>2024-05-01T11:46:00+05:45</time>") + "</trkseg><trkseg>" +
        point(86.7, 27.7, "<time>2024-05-01T06:02:00</time>") + "</trkseg></trk><trk><trkseg>" +
        point(86.8, 27.8, "") + point(86.9, 27.9, "<time>noon</time>") + "</trkseg></trk>");
    const TrackFile::Tracks tracks = TrackFile::read(path);
    ASSERT_EQ(3U, tracks.pieces.size());
    ASSERT_EQ(2U, tracks.pieces[0].size());
    const double six = *IsoTime::parse("2024-05-01T06:00Z");
    EXPECT_EQ(six + 0.25, tracks.pieces[0][0].time);
    EXPECT_EQ(six + 60.0, tracks.pieces[0][1].time);
    EXPECT_EQ(86.5, tracks.pieces[0][0].position.x);
    EXPECT_EQ(27.5, tracks.pieces[0][0].position.z);
    EXPECT_EQ(5000.5, tracks.pieces[0][0].position.y);
    ASSERT_EQ(1U, tracks.pieces[1].size());
    EXPECT_EQ(six + 120.0, tracks.pieces[1][0].time) << "no zone is UTC";
    EXPECT_EQ(0.0, tracks.pieces[1][0].position.y);
    ASSERT_EQ(2U, tracks.pieces[2].size());
    EXPECT_TRUE(std::isnan(tracks.pieces[2][0].time));
    EXPECT_TRUE(std::isnan(tracks.pieces[2][1].time));
    EXPECT_EQ(0U, tracks.withoutPlace);
}

TEST_F(TrackFileTest, PlacesComeInTheSystemThatIsAskedFor) {
    const std::string path = write("<trk><trkseg>" + point(86.5, 27.5, "") + "</trkseg></trk>");
    const std::string wkt = CoordinateSystem::parse("EPSG:32645").wkt;
    const auto place = CoordinateSystem(wkt).fromLonLat({86.5, 27.5});
    const TrackFile::Tracks tracks = TrackFile::read(path, wkt);
    ASSERT_EQ(1U, tracks.pieces.size());
    EXPECT_EQ(place->x, tracks.pieces[0][0].position.x);
    EXPECT_EQ(place->y, tracks.pieces[0][0].position.z);
}

TEST_F(TrackFileTest, PointsWithoutAPlaceAreLeftOutAndCounted) {
    const std::string wkt = CoordinateSystem::parse("EPSG:32645").wkt; // about 87 degrees east
    const std::string path =
        write("<trk><trkseg>" + point(-3.0, 0.0, "") + point(80.0, 45.0, "") + "</trkseg></trk>");
    const TrackFile::Tracks tracks = TrackFile::read(path, wkt);
    EXPECT_EQ(1U, tracks.withoutPlace);
    ASSERT_EQ(1U, tracks.pieces.size());
    EXPECT_EQ(1U, tracks.pieces[0].size());
}

TEST_F(TrackFileTest, FilesWithoutTracksSayWhatToDo) {
    expectPart(thrown([&] { TrackFile::read(inFolder("none.gpx")); }), "none.gpx");
    const std::string empty = write("<wpt lat='1' lon='2'/>");
    expectPart(thrown([&] { TrackFile::read(empty); }), "no points of tracks");
    const std::string other = inFolder("map.geojson");
    std::ofstream(other) << R"({"type":"FeatureCollection","features":[{"type":"Feature","properties":{},)"
                            R"("geometry":{"type":"Point","coordinates":[1,2]}}]})";
    expectPart(thrown([&] { TrackFile::read(other); }), "is no GPX file");
    const std::string whole =
        write("<trk><trkseg>" + point(86.5, 27.5, "") + point(86.6, 27.5, "") + "</trkseg></trk>");
    std::string bytes;
    std::getline(std::ifstream(whole), bytes, '\0');
    for (std::size_t length = 0; length < bytes.size(); length += 7) {
        std::ofstream(whole) << bytes.substr(0, length);
        EXPECT_NE("nothing was thrown", thrown([&] { TrackFile::read(whole); })) << length;
    }
}

} // namespace
