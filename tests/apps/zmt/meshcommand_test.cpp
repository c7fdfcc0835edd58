#include <algorithm>
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "smallground.h"
#include "support/readmesh.h"
#include "support/smallgeotiff.h"
#include "support/wronguse.h"
#include "support/zmtrun.h"

#include <nbx/data/memorydataresource.h>
#include <nbx/image/jpegreader.h>
#include <nbx/math/color.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

using Vector = ReadMesh::Vector;

bool isVoid(float height) {
    return height == -9999.0F;
}

/// Hills with noise, highest near the north-eastern corner.
SmallGeoTiff hills() {
    SmallGeoTiff tiff{s_width, s_height};
    std::mt19937 random(7);
    std::uniform_real_distribution<float> noise(0.0F, 20.0F);
    for (unsigned y = 0; y < s_height; ++y)
        for (unsigned x = 0; x < s_width; ++x)
            tiff.heights.push_back(500.0F + 100.0F * std::sin(float(x) * 0.2F) * std::cos(float(y) * 0.3F) +
                                   noise(random));
    tiff.heights[3 * s_width + 36] = 900.0F;
    tiff.noData = "-9999";
    return tiff;
}

/// A lake, a turned border, and two holes that touch in a corner, as do the heights between them.
SmallGeoTiff hillsWithVoids() {
    SmallGeoTiff tiff = hills();
    for (unsigned y = 0; y < s_height; ++y)
        for (unsigned x = 0; x < s_width; ++x) {
            const bool isLake = x > 10 && x < 17 && y > 12 && y < 20;
            const bool isCorner =
                (x >= 25 && x < 28 && y >= 10 && y < 13) || (x >= 28 && x < 31 && y >= 13 && y < 16);
            const bool isPinch = (x == 29 && y == 11) || (x == 26 && y == 14);
            if (isLake || isCorner || isPinch || x + 2 * y < 12) tiff.heights[y * s_width + x] = -9999.0F;
        }
    return tiff;
}

RunResult runMesh(const RunFolder & folder, const SmallGeoTiff & raster, const std::string & name,
                  const std::vector<std::string> & options, const RunLimits & limits = {}) {
    std::vector<std::string> arguments = {"mesh", folder.write("t.tif", raster.encode()), folder.out(name)};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return runProcess(ZMT_EXECUTABLE, arguments, folder, limits);
}

ReadMesh make(const SmallGeoTiff & raster, const std::string & name,
              const std::vector<std::string> & options) {
    const RunFolder folder;
    const RunResult run = runMesh(folder, raster, name, options);
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_EQ("", run.errors);
    EXPECT_EQ(std::vector<std::string>{name}, folder.results());
    return run.status == 0 ? ReadMesh::read(folder.out(name)) : ReadMesh();
}

/// The centre of a pixel of line `y` from the north.
Vector centreOf(const SmallGeoTiff & raster, unsigned x, unsigned y) {
    const double easting = raster.west + (x + 0.5) * raster.cell,
                 northing = raster.north - (y + 0.5) * raster.cell;
    const double height = double(raster.heights[y * raster.width + x]);
    if (!raster.isInDegrees) return {easting, northing, height};
    static const ZMT::RASTER::CoordinateSystem utm(ZMT::RASTER::CoordinateSystem::parse("EPSG:32645").wkt);
    const auto place = utm.fromLonLat({easting, northing});
    return {place->x, place->y, height};
}

struct Deviation {
    double error = 0.0;
    unsigned uncovered = 0;    ///< heights without a triangle
    unsigned coveredVoids = 0; ///< missing ones with one, further inside than roundings reach
};

/// The upper sides of the mesh at all pixels, by trying all triangles.
Deviation measure(const SmallGeoTiff & raster, const ReadMesh & mesh) {
    const std::vector<Vector> corners = mesh.mapPositions();
    const double walls = raster.isInDegrees ? 1.0 : 1e-3 * raster.cell * raster.cell; // they have no area
    Deviation deviation;
    for (unsigned y = 0; y < raster.height; ++y)
        for (unsigned x = 0; x < raster.width; ++x) {
            const Vector p = centreOf(raster, x, y);
            double least = std::numeric_limits<double>::infinity();
            bool isInside = false;
            for (const auto & t : mesh.triangles) {
                const Vector &a = corners[t[0]], &b = corners[t[1]], &c = corners[t[2]];
                const auto side = [&p](const Vector & from, const Vector & to) {
                    return (to[0] - from[0]) * (p[1] - from[1]) - (to[1] - from[1]) * (p[0] - from[0]);
                };
                const double u = side(b, c), v = side(c, a), w = side(a, b), area = u + v + w;
                constexpr double tolerance = 1e-3; // of the roundings of positions, in shares of a triangle
                if (area <= walls || std::min({u, v, w}) < -tolerance * area) continue;
                isInside = isInside || std::min({u, v, w}) > tolerance * area;
                least = std::min(least, std::fabs((u * a[2] + v * b[2] + w * c[2]) / area - p[2]));
            }
            if (isVoid(raster.heights[y * raster.width + x]))
                deviation.coveredVoids += isInside;
            else if (std::isinf(least))
                ++deviation.uncovered;
            else
                deviation.error = std::max(deviation.error, least);
        }
    return deviation;
}

class MeshFormat : public ::testing::TestWithParam<const char *> {
protected:
    std::string name() const { return std::string("m.") + GetParam(); }
};

TEST_P(MeshFormat, TheErrorOfTheFileIsTheOneStated) {
    const SmallGeoTiff raster = hills();
    const ReadMesh mesh = make(raster, name(), {"--error", "12"});
    const Deviation deviation = measure(raster, mesh);
    EXPECT_EQ(0U, deviation.uncovered);
    EXPECT_NEAR(mesh.error, deviation.error, 1e-4);
    EXPECT_LE(mesh.error, 12.0);
    EXPECT_GT(mesh.error, 6.0);
    EXPECT_LT(mesh.triangles.size(), 2U * 40 * 28 / 2);
    EXPECT_EQ(1.0, mesh.scale);
    EXPECT_EQ("EPSG:32645", mesh.system);
}

TEST_P(MeshFormat, FarFromTheOriginNothingIsLost) {
    SmallGeoTiff raster = hills();
    raster.west = 499983.25; // northings here are above three millions
    raster.cell = 0.3;
    const ReadMesh mesh = make(raster, name(), {"--error", "3"});
    EXPECT_NEAR(mesh.error, measure(raster, mesh).error, 1e-4);
    for (const Vector & position : mesh.positions)
        EXPECT_LT(std::hypot(position[0], mesh.isYUp ? position[2] : position[1]), 10.0);
}

TEST_P(MeshFormat, AxesAreThoseOfTheFormat) {
    const SmallGeoTiff raster = hills();
    const ReadMesh mesh = make(raster, name(), {"--error", "12"});
    const unsigned up = mesh.isYUp ? 1 : 2;
    const auto summit = *std::max_element(mesh.positions.begin(), mesh.positions.end(),
                                          [up](const Vector & a, const Vector & b) { return a[up] < b[up]; });
    // In the north-east of the middle: 16 columns and 11 rows.
    const Vector expected =
        mesh.isYUp ? Vector{16 * 32.0, 900.0, -11 * 32.0} : Vector{16 * 32.0, 11 * 32.0, 900.0};
    EXPECT_EQ(expected, summit);
    const Vector onMap{raster.west + 36.5 * 32.0, raster.north - 3.5 * 32.0, 900.0};
    EXPECT_EQ(onMap, mesh.onMap(summit));
    // Triangles turn left as seen from above.
    for (const auto & t : mesh.triangles) {
        const Vector a = mesh.onMap(mesh.positions[t[0]]), b = mesh.onMap(mesh.positions[t[1]]),
                     c = mesh.onMap(mesh.positions[t[2]]);
        EXPECT_GT((b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]), 0.0);
    }
}

TEST_P(MeshFormat, WithABaseItIsClosed) {
    const SmallGeoTiff raster = hillsWithVoids();
    const ReadMesh mesh = make(raster, name(), {"--error", "12", "--base", "100"});
    EXPECT_EQ(0U, mesh.openEdges());
    // About 400 m above the base, over all but the voids.
    const auto area = double(std::count_if(raster.heights.begin(), raster.heights.end(),
                                           [](float height) { return !isVoid(height); })) *
                      32.0 * 32.0;
    EXPECT_GT(mesh.volume(), area * 300.0);
    EXPECT_LT(mesh.volume(), area * 420.0);
    const Deviation deviation = measure(raster, mesh);
    EXPECT_EQ(0U, deviation.coveredVoids);
    EXPECT_LE(deviation.error, 12.0 + 1.0); // where parts touch, they are apart by a hundredth of a cell
    double lowest = 1e9;
    for (const Vector & position : mesh.mapPositions())
        lowest = std::min(lowest, position[2]);
    EXPECT_EQ(100.0, lowest);
}

TEST_P(MeshFormat, VoidsAreHoles) {
    const SmallGeoTiff raster = hillsWithVoids();
    const ReadMesh mesh = make(raster, name(), {"--error", "12"});
    const Deviation deviation = measure(raster, mesh);
    EXPECT_EQ(0U, deviation.coveredVoids);
    EXPECT_EQ(0U, deviation.uncovered);
    EXPECT_NEAR(mesh.error, deviation.error, 1e-4);
}

TEST_P(MeshFormat, CellsInDegreesAreProjectedAndNotResampled) {
    SmallGeoTiff raster = hills();
    raster.isInDegrees = true;
    raster.system = 4326;
    raster.west = 86.0;
    raster.north = 61.0; // where cells are half as wide as high
    raster.cell = 1.0 / 120.0;
    const ReadMesh mesh = make(raster, name(), {"--error", "12"});
    EXPECT_EQ("EPSG:32645", mesh.system);
    const Deviation deviation = measure(raster, mesh);
    EXPECT_NEAR(mesh.error, deviation.error, 0.05);
    EXPECT_LE(deviation.error, 12.05);
    EXPECT_LE(deviation.uncovered, 10U); // beyond straight edges of the border
    // Each vertex is a pixel, with its own height.
    for (const Vector & v : mesh.mapPositions()) {
        double nearest = 1e9;
        for (unsigned y = 0; y < s_height; ++y)
            for (unsigned x = 0; x < s_width; ++x) {
                const Vector p = centreOf(raster, x, y);
                if (float(p[2]) == float(v[2]))
                    nearest = std::min(nearest, std::hypot(p[0] - v[0], p[1] - v[1]));
            }
        ASSERT_LT(nearest, 1.0);
    }
}

TEST_P(MeshFormat, AWidthScalesAllThreeDirections) {
    const SmallGeoTiff raster = hills();
    const ReadMesh mesh = make(raster, name(), {"--error", "12", "--base", "400", "--width", "150"});
    double west = 1e9, east = -1e9, low = 1e9;
    for (const Vector & p : mesh.positions) {
        west = std::min(west, p[0]);
        east = std::max(east, p[0]);
        low = std::min(low, mesh.isYUp ? p[1] : p[2]);
    }
    EXPECT_NEAR(150.0, east - west, 1e-4);
    EXPECT_EQ(0.0, low) << "the underside lies on the plate";
    EXPECT_NEAR(150.0 / (40 * 32.0), mesh.scale, 1e-12);
    EXPECT_EQ(0U, mesh.openEdges());
    EXPECT_NEAR(mesh.error, measure(raster, mesh).error, 1e-3);
    EXPECT_GT(mesh.volume(), 0.0);
}

INSTANTIATE_TEST_SUITE_P(MeshCommand, MeshFormat, ::testing::Values("obj", "ply", "stl", "glb"),
                         [](const auto & info) { return std::string(info.param); });

TEST(MeshCommand, TrianglesAreObeyedAndTheErrorIsWhatTheyLeave) {
    const SmallGeoTiff raster = hills();
    const ReadMesh mesh = make(raster, "m.ply", {"--triangles", "300"});
    EXPECT_GE(mesh.triangles.size(), 300U);
    EXPECT_LE(mesh.triangles.size(), 301U);
    EXPECT_NEAR(mesh.error, measure(raster, mesh).error, 1e-4);
}

TEST(MeshCommand, NormalsOfStlLookOutwards) {
    const ReadMesh mesh = make(hills(), "m.stl", {"--error", "30", "--base", "0"});
    ASSERT_EQ(mesh.triangles.size(), mesh.normals.size());
    for (std::size_t i = 0; i < mesh.triangles.size(); ++i) {
        const auto & t = mesh.triangles[i];
        const Vector &a = mesh.positions[t[0]], &b = mesh.positions[t[1]], &c = mesh.positions[t[2]];
        Vector n{};
        for (unsigned k = 0; k < 3; ++k) {
            const unsigned l = (k + 1) % 3, m = (k + 2) % 3;
            n[k] = (b[l] - a[l]) * (c[m] - a[m]) - (b[m] - a[m]) * (c[l] - a[l]);
        }
        const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        for (unsigned k = 0; k < 3; ++k)
            ASSERT_NEAR(n[k] / length, mesh.normals[i][k], 1e-6);
    }
}

TEST(MeshCommand, ThreadsChangeNothing) {
    std::string files[2];
    for (const char * threads : {"1", "3"}) {
        const RunFolder folder;
        EXPECT_EQ(0, runMesh(folder, hillsWithVoids(), "m.stl",
                             {"--error", "5", "--base", "9", "--threads", threads})
                         .status);
        files[threads[0] == '3'] = readWhole(folder.out("m.stl"));
    }
    EXPECT_EQ(files[0], files[1]);
}

/// Colours of a picture over the eastern half and more: red in the south, green in the north.
SmallGeoTiff picture(bool isPlaced) {
    SmallGeoTiff image{64, 32, SmallGeoTiff::Pixels::Colors};
    image.isPlaced = isPlaced;
    image.west = 500000.0 + 20.5 * 32.0; // the middle of the terrain
    image.north = 3100000.0;
    image.cell = 32.0;
    for (unsigned y = 0; y < image.height; ++y)
        for (unsigned x = 0; x < image.width; ++x)
            for (const std::uint8_t value : {y < 16 ? 0 : 200, y < 16 ? 200 : 0, x < 4 ? 250 : 0})
                image.colors.push_back(value);
    return image;
}

NBX::SO<NBX::Image> decoded(const std::string & bytes) {
    const NBX::SO<NBX::MemoryDataResource> data(
        new NBX::MemoryDataResource(bytes.data(), unsigned(bytes.size())));
    NBX::JPEGReader reader;
    return reader.read(data.get());
}

void expectGroundColors(const ReadMesh & mesh, const std::string & jpeg) {
    const auto image = decoded(jpeg);
    ASSERT_TRUE(image);
    ASSERT_EQ(mesh.positions.size(), mesh.coordinates.size());
    unsigned north = 0, south = 0, outside = 0;
    for (std::size_t i = 0; i < mesh.positions.size(); ++i) {
        const auto [u, v] = mesh.coordinates[i];
        const Vector p = mesh.onMap(mesh.positions[i]);
        const bool isOutside = p[0] < 500000.0 + 20.0 * 32.0;
        EXPECT_EQ(isOutside, u < -1e-6) << p[0];
        if (isOutside || u < 0.0) {
            ++outside;
            continue;
        }
        const auto color = image->getColor(std::min(int(u * image->width()), image->width() - 1),
                                           std::min(int(v * image->height()), image->height() - 1));
        const double line = (3100000.0 - p[1]) / 32.0;
        if (line < 15.0) {
            EXPECT_GT(color[1], color[0]) << p[0] << " " << p[1];
            ++north;
        }
        if (line > 17.0) {
            EXPECT_GT(color[0], color[1]) << p[0] << " " << p[1];
            ++south;
        }
        const double column = (p[0] - 500000.0) / 32.0 - 20.5;
        if (column < 3.0) {
            EXPECT_GT(color[2], 0.5F) << column;
        }
        if (column > 5.0) {
            EXPECT_LT(color[2], 0.3F) << column;
        }
    }
    EXPECT_GT(north, 10U);
    EXPECT_GT(south, 10U);
    EXPECT_GT(outside, 10U);
}

TEST(MeshCommand, AnImageLiesWhereItsMapCoordinatesAre) {
    const RunFolder folder;
    const std::string image = folder.write("i.tif", picture(true).encode());
    ASSERT_EQ(0, runMesh(folder, hills(), "m.glb", {"--error", "12", "--image", image}).status);
    EXPECT_EQ(std::vector<std::string>{"m.glb"}, folder.results());
    const ReadMesh glb = ReadMesh::read(folder.out("m.glb"));
    expectGroundColors(glb, glb.picture);
    ASSERT_EQ(0, runMesh(folder, hills(), "m.obj", {"--error", "12", "--image", image}).status);
    EXPECT_EQ((std::vector<std::string>{"m.glb", "m.jpg", "m.mtl", "m.obj"}), folder.results());
    const ReadMesh obj = ReadMesh::read(folder.out("m.obj"));
    EXPECT_EQ("m.mtl", obj.materials);
    EXPECT_NE(std::string::npos, readWhole(folder.out("m.mtl")).find("newmtl ground\n"));
    EXPECT_NE(std::string::npos, readWhole(folder.out("m.mtl")).find("map_Kd m.jpg\n"));
    expectGroundColors(obj, readWhole(folder.out("m.jpg")));
}

TEST(MeshCommand, AnImageWithoutAPlaceLiesAllOver) {
    const RunFolder folder;
    const std::string image = folder.write("i.tif", picture(false).encode());
    ASSERT_EQ(0,
              runMesh(folder, hills(), "m.glb", {"--error", "12", "--base", "0", "--image", image}).status);
    const ReadMesh mesh = ReadMesh::read(folder.out("m.glb"));
    ASSERT_EQ(mesh.positions.size(), mesh.coordinates.size());
    for (std::size_t i = 0; i < mesh.positions.size(); ++i) {
        const Vector p = mesh.onMap(mesh.positions[i]);
        EXPECT_NEAR((p[0] - 500016.0) / (40 * 32.0), mesh.coordinates[i][0], 1e-6);
        EXPECT_NEAR((p[1] - (3099984.0 - 28 * 32.0)) / (28 * 32.0), mesh.coordinates[i][1], 1e-6);
    }
}

TEST(MeshCommand, FlatAndTinyRastersAreTwoTriangles) {
    for (const auto & [width, height] : {std::pair(2U, 2U), {30U, 20U}}) {
        SmallGeoTiff raster{width, height};
        raster.heights.assign(std::size_t(width) * height, 7.0F);
        const ReadMesh open = make(raster, "m.ply", {"--error", "0"});
        EXPECT_EQ(2U, open.triangles.size());
        EXPECT_EQ(0.0, open.error);
        const ReadMesh body = make(raster, "m.stl", {"--error", "0", "--base", "-3"});
        EXPECT_EQ(12U, body.triangles.size());
        EXPECT_EQ(0U, body.openEdges());
        EXPECT_NEAR(10.0 * (width - 1) * (height - 1) * 32.0 * 32.0, body.volume(), 1e-2);
    }
}

TEST(MeshCommand, WhatHoldsNoSurfaceIsToldInOneLine) {
    SmallGeoTiff row{9, 1};
    row.heights.assign(9, 1.0F);
    SmallGeoTiff nothing{9, 5};
    nothing.heights.assign(45, -9999.0F);
    nothing.noData = "-9999";
    SmallGeoTiff lonely = nothing;
    lonely.heights[22] = 5.0F;
    for (const auto & [raster, words] :
         {std::pair(row, "at least 2 by 2"), {nothing, "no defined height"}, {lonely, "no three heights"}}) {
        const RunFolder folder;
        const RunResult run = runMesh(folder, raster, "m.glb", {"--error", "1"});
        EXPECT_EQ(1, run.status);
        EXPECT_NE(std::string::npos, run.errors.find(words)) << run.errors;
        EXPECT_EQ(1, std::count(run.errors.begin(), run.errors.end(), '\n')) << run.errors;
        EXPECT_TRUE(folder.results().empty());
    }
}

TEST(MeshCommand, DamagedInputLeavesNothing) {
    const RunFolder folder;
    const std::string bytes = hills().encode();
    for (const std::size_t length : {std::size_t(0), std::size_t(100), bytes.size() / 2}) {
        const RunResult run = runProcess(
            ZMT_EXECUTABLE,
            {"mesh", folder.write("t.tif", bytes.substr(0, length)), folder.out("m.glb"), "--error", "1"},
            folder);
        EXPECT_EQ(1, run.status);
        EXPECT_EQ(1, std::count(run.errors.begin(), run.errors.end(), '\n')) << run.errors;
    }
    const std::string image = folder.write("i.tif", "no image");
    EXPECT_EQ(1, runMesh(folder, hills(), "m.glb", {"--error", "1", "--image", image}).status);
    EXPECT_TRUE(folder.results().empty());
}

TEST(MeshCommand, AnImageElsewhereIsRefused) {
    const RunFolder folder;
    SmallGeoTiff image = picture(true);
    image.west += 100000.0;
    const RunResult run =
        runMesh(folder, hills(), "m.obj", {"--error", "9", "--image", folder.write("i.tif", image.encode())});
    EXPECT_EQ(1, run.status);
    EXPECT_NE(std::string::npos, run.errors.find("the image lies elsewhere")) << run.errors;
    EXPECT_TRUE(folder.results().empty());
}

TEST(MeshCommand, AFullDiskLeavesTheOldFile) {
    const RunFolder folder;
    ASSERT_EQ(0, runMesh(folder, hills(), "m.ply", {"--error", "50"}).status);
    const std::string before = readWhole(folder.out("m.ply"));
    RunLimits limits;
    limits.largestFile = 9000;
    EXPECT_EQ(1, runMesh(folder, hills(), "m.ply", {"--error", "1"}, limits).status);
    EXPECT_EQ(before, readWhole(folder.out("m.ply")));
    EXPECT_EQ(std::vector<std::string>{"m.ply"}, folder.results());
}

TEST(MeshCommand, CancelledItLeavesNothing) {
    const RunFolder folder;
    RunLimits limits;
    limits.interruptWhenIn = folder.path() / "in";
    const RunResult run = runMesh(folder, hills(), "m.glb", {"--error", "0"}, limits);
    EXPECT_NE(0, run.status);
    EXPECT_TRUE(folder.results().empty());
}

TEST(MeshCommand, AnInputIsNotOverwritten) {
    const RunFolder folder;
    const std::string raster = folder.write("t.ply", hills().encode()); // whatever its name
    const RunResult run = runProcess(ZMT_EXECUTABLE, {"mesh", raster, raster, "--error", "9"}, folder);
    EXPECT_EQ(2, run.status);
    EXPECT_NE(std::string::npos, run.errors.find("same file")) << run.errors;
    EXPECT_EQ(hills().encode(), readWhole(raster));
    const std::string image = folder.write("m.jpg", picture(true).encode());
    const RunResult beside = runProcess(ZMT_EXECUTABLE,
                                        {"mesh", folder.write("t.tif", hills().encode()), folder.in("m.obj"),
                                         "--error", "9", "--image", image},
                                        folder);
    EXPECT_EQ(2, beside.status);
    EXPECT_NE(std::string::npos, beside.errors.find("the picture and --image are the same file"))
        << beside.errors;
}

TEST(MeshCommand, TooFewTrianglesForTheOutlineAreTold) {
    const RunFolder folder;
    const RunResult run = runMesh(folder, hillsWithVoids(), "m.ply", {"--triangles", "10"});
    EXPECT_EQ(1, run.status);
    EXPECT_NE(std::string::npos, run.errors.find("too few for the outline")) << run.errors;
    EXPECT_TRUE(folder.results().empty());
}

class MeshUsage : public ::testing::TestWithParam<WrongUse> {};

TEST_P(MeshUsage, IsTold) {
    const RunFolder folder;
    std::vector<std::string> arguments = {"mesh", folder.write("t.tif", hills().encode())};
    for (const std::string & argument : GetParam().arguments)
        arguments.push_back(argument.rfind("OUT", 0) == 0 ? folder.out("m" + argument.substr(3)) : argument);
    const RunResult run = runProcess(ZMT_EXECUTABLE, arguments, folder);
    EXPECT_EQ(2, run.status);
    EXPECT_NE(std::string::npos, run.errors.find(GetParam().words)) << run.errors;
    EXPECT_EQ(1, std::count(run.errors.begin(), run.errors.end(), '\n')) << run.errors;
    EXPECT_TRUE(folder.results().empty());
}

INSTANTIATE_TEST_SUITE_P(
    MeshCommand, MeshUsage,
    ::testing::Values(
        WrongUse{"NoEnd", {"OUT.glb"}, "give --error, or --triangles"},
        WrongUse{"TwoEnds", {"OUT.glb", "--error", "1", "--triangles", "9"}, "leave one of them out"},
        WrongUse{"UnknownSuffix", {"OUT.dae", "--error", "1"}, ".obj, .ply, .stl or .glb"},
        WrongUse{"NoSuffix", {"OUT", "--error", "1"}, ".obj, .ply, .stl or .glb"},
        WrongUse{"NegativeError", {"OUT.glb", "--error=-1"}, "--error: must be"},
        WrongUse{"EndlessError", {"OUT.glb", "--error", "inf"}, "--error: must be"},
        WrongUse{"ErrorIsNoNumber", {"OUT.glb", "--error", "small"}, "--error"},
        WrongUse{"OneTriangle", {"OUT.glb", "--triangles", "1"}, "at least 2"},
        WrongUse{"NoWidth", {"OUT.stl", "--error", "1", "--width", "0"}, "--width: must be"},
        WrongUse{
            "BaseInTheGround", {"OUT.stl", "--error", "1", "--base", "600"}, "must lie below all heights"},
        WrongUse{"NoBase", {"OUT.stl", "--error", "1", "--base", "nan"}, "--base: must be"},
        WrongUse{"NoThreads", {"OUT.stl", "--error", "1", "--threads", "0"}, "--threads: must be"},
        WrongUse{"ImageOnStl", {"OUT.stl", "--error", "1", "--image", "i.tif"}, "no place for it"},
        WrongUse{"ImageOnPly", {"OUT.ply", "--error", "1", "--image", "i.tif"}, "no place for it"},
        WrongUse{"NoOutput", {}, "out is required"}),
    [](const auto & info) { return std::string(info.param.name); });

} // namespace
