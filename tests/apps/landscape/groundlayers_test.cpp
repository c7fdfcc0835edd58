#include "landscape/groundlayers.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <numbers>
#include <ostream>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <nbx/image/image.h>
#include <nbx/math/color.h>

#include "support/environmentvariable.h"
#include "support/imagecompare.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

using NBX::Color;
using Point = NBX::Vector3Base<double>;
using Arguments = std::vector<std::string>;

/// Ground that rises by so much a metre.
struct Slope {
    const char * name;
    double east, north;
};

constexpr Slope s_slopes[] = {{"flat", 0.0, 0.0}, {"rising to the south-east", 0.4, -0.3}};

SmallGeoTiff slope(const Slope & slope, unsigned width, unsigned height) {
    SmallGeoTiff tiff{width, height};
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            tiff.heights.push_back(float(tiff.cell * (slope.east * x - slope.north * y)));
    return tiff;
}

struct Sun {
    double azimuth, elevation, ambient;

    std::string text() const {
        char buffer[80];
        std::snprintf(buffer, sizeof buffer, "%g,%g,%g", azimuth, elevation, ambient);
        return buffer;
    }
    /// What ground of this slope gives back.
    double on(const Slope & slope, double exaggeration) const {
        const double a = azimuth * std::numbers::pi / 180.0, e = elevation * std::numbers::pi / 180.0;
        const Point toSun(std::sin(a) * std::cos(e), std::sin(e), std::cos(a) * std::cos(e));
        const Point normal(-slope.east * exaggeration, 1.0, -slope.north * exaggeration);
        return ambient + (1.0 - ambient) * std::max(0.0, normal.normalized().dot(toSun));
    }
};

/// The middle of the terrain from straight above.
Color middleOf(const RunFolder & folder, Arguments arguments) {
    const std::string out = folder.out("p.png");
    arguments.insert(arguments.begin(), "render");
    arguments.insert(arguments.end(), {"--view", "north", "--size", "30x30", "--out", out});
    const RunResult run = runProcess(ZMT_EXECUTABLE, arguments, folder);
    EXPECT_EQ(0, run.status) << run.errors;
    const auto picture = readPng(out);
    return picture ? picture->getColor(15, 15) : Color::black;
}

struct LightCase {
    const char * name;
    Arguments arguments;
};

std::ostream & operator<<(std::ostream & stream, const LightCase & c) {
    return stream << c.name;
}

#ifdef __SANITIZE_ADDRESS__
constexpr bool s_isSanitized = true;
#else
constexpr bool s_isSanitized = false;
#endif

class LitGround : public ::testing::Test {
protected:
    /// Writes the terrain, and an image of one colour on it.
    void write(const Slope & ground, unsigned width, unsigned height) {
        folder.write("t.tif", slope(ground, width, height).encode());
        SmallGeoTiff image{width, height, SmallGeoTiff::Pixels::Colors};
        image.colors.assign(std::size_t(3) * width * height, 255);
        folder.write("i.tif", image.encode());
    }
    Color shown(Arguments arguments, const Arguments & lighting) const {
        arguments.insert(arguments.end(), {"--terrain", folder.in("t.tif"), "--image", folder.in("i.tif")});
        arguments.insert(arguments.end(), lighting.begin(), lighting.end());
        return middleOf(folder, arguments);
    }

    const RunFolder folder;
};

class Light : public LitGround, public ::testing::WithParamInterface<LightCase> {
protected:
    Color shown(const Arguments & arguments) const {
        return LitGround::shown(arguments, GetParam().arguments);
    }
};

/// Whatever the shape of the terrain, which a picture from above fills.
TEST_P(Light, IsThatOfTheExaggeratedSurface) {
    const struct {
        unsigned width, height;
        double exaggeration;
        Sun sun;
    } cases[] = {{33, 33, 0.2, {315.0, 45.0, 0.0}},
                 {65, 17, 1.0, {100.0, 30.0, 0.2}},
                 {17, 65, 5.0, {20.0, 70.0, 0.35}}};
    for (const auto & [width, height, exaggeration, sun] : cases)
        for (const Slope & s : s_slopes) {
            // Sanitizers look at what runs, which is the same for all slopes, and are slow.
            if (s_isSanitized && &s != &s_slopes[0]) continue;
            write(s, width, height);
            const Color color = shown(
                {"--light", sun.text(), "--exaggeration", std::to_string(exaggeration), "--shade-images"});
            for (unsigned c = 0; c < 3; ++c)
                EXPECT_NEAR(color[c], sun.on(s, exaggeration), 2.0 / 255.0)
                    << s.name << ", " << width << " x " << height << ", times " << exaggeration;
        }
}

TEST_P(Light, FallsOnImagesAsItIsAsked) {
    const Sun sun{90.0, 30.0, 0.2};
    const std::string lighting = GetParam().arguments[1];
    const bool isUsual = lighting == "dynamic" || lighting == "vertex";
    write(s_slopes[0], 17, 17);
    const double on = sun.on(s_slopes[0], 1.0);
    EXPECT_NEAR(shown({"--light", sun.text()})[0], isUsual ? on : 1.0, 2.0 / 255.0);
    EXPECT_NEAR(shown({"--light", sun.text(), "--shade-images"})[0], on, 2.0 / 255.0);
    if (lighting != "vertex") {
        EXPECT_NEAR(shown({"--light", sun.text(), "--no-shade-images"})[0], 1.0, 2.0 / 255.0);
    }
}

TEST_P(Light, FromEverywhereLeavesTheColoursAsTheyAre) {
    const std::string terrain = folder.write("t.tif", slope(s_slopes[1], 17, 17).encode());
    const auto coloured = [&](const char * ambient) {
        Arguments arguments = {"--terrain", terrain, "--light", std::string("315,45,") + ambient};
        arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
        return middleOf(folder, arguments);
    };
    const Color almost = coloured("0.9999"), all = coloured("1");
    for (unsigned c = 0; c < 3; ++c)
        EXPECT_NEAR(almost[c], all[c], 1.5 / 255.0);
    EXPECT_LT(all[2], 0.9F) << "not white";
}

/// Terrains with such lines are drawn as maps of normals.
TEST_F(LitGround, HasTheSameLightWithBreakLines) {
    const Sun sun{100.0, 30.0, 0.2};
    write(s_slopes[1], 33, 33);
    const std::string lines = folder.write("l.geojson", R"({"type": "LineString", "coordinates": )"
                                                        "[[87.00203, 28.02345], [87.00814, 28.01894]]}");
    for (const char * lighting : {"static", "dynamic"})
        for (const double exaggeration : {0.2, 1.0}) {
            const Color color = shown({"--light", sun.text(), "--exaggeration", std::to_string(exaggeration)},
                                      {"--breaklines", lines, "--lighting", lighting, "--shade-images"});
            EXPECT_NEAR(color[0], sun.on(s_slopes[1], exaggeration), 2.0 / 255.0)
                << lighting << ", times " << exaggeration;
        }
}

/// A line in the system of the terrain, with heights.
std::string lineOf(const std::vector<Point> & points) {
    std::string text = R"({"type": "FeatureCollection", "crs": {"type": "name", "properties": )"
                       R"({"name": "EPSG:32645"}}, "features": [{"type": "Feature", "properties": {}, )"
                       R"("geometry": {"type": "LineString", "coordinates": [)";
    for (const Point & p : points)
        text += (&p == points.data() ? "[" : ", [") + std::to_string(p.x) + ", " + std::to_string(p.z) +
                ", " + std::to_string(p.y) + "]";
    return text + "]}}]}";
}

/// Lines that lie on the ground change nothing, whether the ground's heights are theirs or their own.
TEST_F(LitGround, HasTheSameLightWithBreakLinesThatHaveItsHeights) {
    const Sun sun{100.0, 30.0, 0.2};
    const Slope & rising = s_slopes[1];
    write(rising, 33, 33);
    const SmallGeoTiff tiff = slope(rising, 33, 33);
    const auto onGround = [&](double column, double row) {
        return Point(tiff.west + (column + 0.5) * tiff.cell,
                     tiff.cell * (rising.east * column - rising.north * row),
                     tiff.north - (row + 0.5) * tiff.cell);
    };
    const std::string lines =
        folder.write("l.geojson", lineOf({onGround(2.2, 3.7), onGround(16.4, 17.1), onGround(29.9, 14.3)}));
    for (const char * lighting : {"relief", "static", "dynamic", "vertex"}) {
        const Color color =
            shown({"--light", sun.text()}, {"--breaklines", lines, "--lighting", lighting, "--shade-images"});
        EXPECT_NEAR(color[0], sun.on(rising, 1.0), 2.0 / 255.0) << lighting;
    }
}

/// A ridge from north to south on a plain, with the sun in the west: the ground far from it is lit as a
/// plain, and its western side is bright, its eastern one dark.
TEST_F(LitGround, SeesTheHeightsOfBreakLines) {
    const Sun sun{270.0, 45.0, 0.1};
    write(s_slopes[0], 33, 33);
    const SmallGeoTiff tiff = slope(s_slopes[0], 33, 33);
    const double x = tiff.west + 17.0 * tiff.cell, top = 4.0 * tiff.cell;
    const std::string lines = folder.write(
        "l.geojson",
        lineOf({Point(x, top, tiff.north - tiff.cell), Point(x, top, tiff.north - 32.0 * tiff.cell)}));
    for (const char * lighting : {"relief", "static", "dynamic"}) {
        const std::string out = folder.out("p.png");
        const RunResult run = runProcess(
            ZMT_EXECUTABLE,
            {"render",       "--terrain", folder.in("t.tif"), "--image", folder.in("i.tif"), "--shade-images",
             "--breaklines", lines,       "--lighting",       lighting,  "--light",          sun.text(),
             "--view",       "north",     "--geometry-error", "0",       "--size",           "330x330",
             "--out",        out},
            folder);
        ASSERT_EQ(0, run.status) << run.errors;
        const auto picture = readPng(out);
        ASSERT_TRUE(picture);
        EXPECT_NEAR(picture->getColor(100, 165)[0], sun.on(s_slopes[0], 1.0), 2.0 / 255.0) << lighting;
        EXPECT_NEAR(picture->getColor(230, 165)[0], sun.on(s_slopes[0], 1.0), 2.0 / 255.0) << lighting;
        float brightest = 0.0F, darkest = 1.0F;
        for (int column = 150; column < 180; ++column) {
            brightest = std::max(brightest, picture->getColor(column, 165)[0]);
            darkest = std::min(darkest, picture->getColor(column, 165)[0]);
        }
        EXPECT_GT(brightest, 0.75F) << lighting;
        EXPECT_LT(darkest, 0.25F) << lighting;
    }
}

/// From the side a ridge that reaches the border of the terrain ends in the grey wall: one does not look
/// under it.
TEST_F(LitGround, RidgesAtTheBorderHaveNoHoles) {
    write(s_slopes[0], 33, 33);
    const SmallGeoTiff tiff = slope(s_slopes[0], 33, 33);
    const double x = tiff.west + 17.0 * tiff.cell, top = 10.0 * tiff.cell;
    const std::string lines = folder.write(
        "l.geojson",
        lineOf({Point(x, top, tiff.north - 10.0 * tiff.cell), Point(x, top, tiff.north - 40.0 * tiff.cell)}));
    const double south = tiff.north - 32.5 * tiff.cell;
    const auto text = [](double number) { return std::to_string(number); };
    const std::string out = folder.out("p.png");
    const std::string eye = text(x) + "," + text(south - 40.0 * tiff.cell) + "," + text(0.5 * top);
    const std::string aim = text(x) + "," + text(south) + "," + text(0.5 * top);
    const RunResult run =
        runProcess(ZMT_EXECUTABLE,
                   {"render", "--terrain", folder.in("t.tif"), "--breaklines", lines, "--geometry-error", "0",
                    "--view", eye + "," + aim, "--size", "200x200", "--out", out},
                   folder);
    ASSERT_EQ(0, run.status) << run.errors;
    const auto picture = readPng(out);
    ASSERT_TRUE(picture);
    const Color sky = picture->getColor(2, 197);
    for (int line = 80; line < 120; ++line) {
        const Color wall = picture->getColor(100, line);
        EXPECT_GT(colorDifference(sky, wall), 5.0) << line;
        EXPECT_LT(std::max({wall[0], wall[1], wall[2]}) - std::min({wall[0], wall[1], wall[2]}), 0.02F)
            << line;
    }
    EXPECT_LT(colorDifference(sky, picture->getColor(100, 190)), 2.0) << "above the ridge";
}

const LightCase s_lights[] = {
    {"relief", {"--lighting", "relief"}},
    {"vertex", {"--lighting", "vertex"}},
    {"static", {"--lighting", "static"}},
    {"dynamic", {"--lighting", "dynamic"}},
    {"chunked_static", {"--lighting", "static", "--method", "chunked"}},
    {"chunked_dynamic", {"--lighting", "dynamic", "--method", "chunked"}},
};

INSTANTIATE_TEST_SUITE_P(GroundLayers, Light, ::testing::ValuesIn(s_lights),
                         [](const auto & info) { return std::string(info.param.name); });

/// An image of 10 000 by 8 000 pixels that stores no coarse levels: a pixel each of a small one, enlarged.
std::string largeImage(const RunFolder & folder) {
    SmallGeoTiff image{100, 80, SmallGeoTiff::Pixels::Colors};
    for (unsigned i = 0; i < 100 * 80; ++i)
        for (const unsigned value : {i % 100 * 2, i / 100 * 3, 90U})
            image.colors.push_back(std::uint8_t(value));
    folder.write("small.tif", image.encode());
    std::string text = "<VRTDataset rasterXSize=\"10000\" rasterYSize=\"8000\"><SRS>EPSG:32645</SRS>"
                       "<GeoTransform>500000,0.32,0,3100000,0,-0.32</GeoTransform>";
    for (const char * band : {"1", "2", "3"})
        text += std::string("<VRTRasterBand dataType=\"Byte\" band=\"") + band +
                "\"><SimpleSource><SourceFilename relativeToVRT=\"1\">small.tif</SourceFilename>"
                "<SourceBand>" +
                band +
                "</SourceBand><SrcRect xOff=\"0\" yOff=\"0\" xSize=\"100\" ySize=\"80\"/>"
                "<DstRect xOff=\"0\" yOff=\"0\" xSize=\"10000\" ySize=\"8000\"/>"
                "</SimpleSource></VRTRasterBand>";
    return folder.write("large.vrt", text + "</VRTDataset>");
}

/// A run with `--no-cache` leaves none and uses none; another makes them, and the next one finds them.
TEST(CoarseLevelsOfImages, AreKeptInTheCacheOfTheUser) {
    namespace fs = std::filesystem;
    const RunFolder folder;
    const EnvironmentVariable home("XDG_CACHE_HOME", folder.out("cache").c_str());
    const fs::path cache = folder.out("cache/zmt");
    folder.write("t.tif", slope(s_slopes[1], 101, 81).encode());
    const std::string image = largeImage(folder);
    const auto shown = [&](Arguments arguments) {
        arguments.insert(arguments.end(), {"--terrain", folder.in("t.tif"), "--image", image});
        return middleOf(folder, arguments);
    };
    const auto kept = [&] {
        std::vector<fs::path> files;
        if (fs::exists(cache))
            for (const auto & entry : fs::directory_iterator(cache))
                if (entry.file_size() > 10'000'000) files.push_back(entry.path());
        return files;
    };
    const Color expected = shown({"--no-cache"});
    EXPECT_TRUE(kept().empty());
    EXPECT_EQ(expected, shown({}));
    ASSERT_EQ(1U, kept().size());
    const auto made = fs::file_size(kept()[0]);
    // What is found is not made again.
    const auto inode = [&] {
        struct stat status {};
        ::stat(kept()[0].c_str(), &status);
        return status.st_ino;
    };
    const auto before = inode();
    EXPECT_EQ(expected, shown({}));
    ASSERT_EQ(1U, kept().size());
    EXPECT_EQ(before, inode());
    EXPECT_EQ(made, fs::file_size(kept()[0]));
}

TEST(GroundLayers, LightOfShapedCellsIsFineWithinBounds) {
    EXPECT_EQ(4.0, texelsOfShapedCell(2, 2));
    EXPECT_EQ(4.0, texelsOfShapedCell(1024, 1024));
    EXPECT_EQ(4.0, texelsOfShapedCell(1 << 18, 4));
    EXPECT_EQ(2.0, texelsOfShapedCell(2048, 2048));
    EXPECT_EQ(2.0, texelsOfShapedCell(4096, 1024));
    EXPECT_EQ(1.0, texelsOfShapedCell(4096, 4096));
    EXPECT_EQ(1.0, texelsOfShapedCell(20000, 20000)) << "as cells without shapes";
    EXPECT_EQ(4.0, texelsOfShapedCell(0, 0));
}

} // namespace
