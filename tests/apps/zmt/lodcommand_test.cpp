#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "smallground.h"
#include "support/smallgeotiff.h"
#include "support/wronguse.h"
#include "support/zmtrun.h"

namespace {

constexpr unsigned s_maxVertices = 120;
constexpr unsigned s_deepest = 5; ///< the last level of the trees here

/// Hills with noise; `voids` leaves out a part.
SmallGeoTiff hills(bool voids) {
    SmallGeoTiff tiff{s_width, s_height};
    std::mt19937 random(7);
    std::uniform_real_distribution<float> noise(0.0F, 20.0F);
    for (unsigned y = 0; y < s_height; ++y)
        for (unsigned x = 0; x < s_width; ++x) {
            const bool isVoid = voids && x > 10 && x < 17 && y > 12 && y < 20;
            const float height = 500.0F + 200.0F * std::sin(float(x) * 0.2F) * std::cos(float(y) * 0.3F);
            tiff.heights.push_back(isVoid ? -9999.0F : height + noise(random));
        }
    tiff.noData = "-9999";
    return tiff;
}

struct MeshPoint {
    double x, height, y;
};

struct Mesh {
    std::vector<MeshPoint> vertices;
    std::vector<std::array<unsigned, 3>> triangles;
};

/// The groups of an OBJ file; anything but `g`, `v` and `f` lines with three numbers fails.
std::map<unsigned, Mesh> parseObj(const std::string & text) {
    std::map<unsigned, Mesh> meshes;
    std::istringstream lines(text);
    Mesh * mesh = nullptr;
    std::size_t first = 1, vertices = 0;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word, a, b, c, rest;
        words >> word;
        if (word == "g") {
            unsigned id = 0;
            words >> id;
            EXPECT_EQ(0U, meshes.count(id)) << line;
            mesh = &meshes[id];
            first = vertices + 1;
            continue;
        }
        words >> a >> b >> c;
        EXPECT_TRUE(words && !(words >> rest)) << line;
        if (!mesh) {
            ADD_FAILURE() << "a line before the first group";
            break;
        }
        if (word == "v") {
            mesh->vertices.push_back({std::stod(a), std::stod(b), std::stod(c)});
            ++vertices;
        } else {
            EXPECT_EQ("f", word) << line;
            std::array<unsigned, 3> triangle{};
            for (unsigned i = 0; i < 3; ++i) {
                const unsigned long number = std::stoul(i == 0 ? a : i == 1 ? b : c);
                EXPECT_TRUE(number >= first && number <= vertices) << line;
                triangle[i] = unsigned(number - first);
            }
            mesh->triangles.push_back(triangle);
        }
    }
    return meshes;
}

struct Tree {
    nlohmann::json nodes;
    std::map<unsigned, Mesh> meshes;
    std::string obj;
};

Tree build(const SmallGeoTiff & raster, unsigned level, const std::string & seed = "1",
           const std::vector<std::string> & more = {}) {
    const RunFolder folder;
    std::vector<std::string> arguments = {"lod",
                                          "--terrain",
                                          folder.write("t.tif", raster.encode()),
                                          "--native",
                                          "--max-vertices",
                                          std::to_string(s_maxVertices),
                                          "--seed",
                                          seed,
                                          "--report",
                                          folder.out("r.json"),
                                          "--mesh",
                                          std::to_string(level),
                                          folder.out("m.obj")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const RunResult run = runProcess(ZMT_EXECUTABLE, arguments, folder);
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_EQ((std::vector<std::string>{"m.obj", "r.json"}), folder.results());
    Tree tree;
    const auto report = nlohmann::json::parse(readWhole(folder.out("r.json")));
    EXPECT_GT(report["build_ms"], 0.0);
    EXPECT_GT(report["peak_rss_bytes"], 1 << 20);
    tree.nodes = report["nodes"];
    tree.obj = readWhole(folder.out("m.obj"));
    tree.meshes = parseObj(tree.obj);
    return tree;
}

/// Height of the raster in row `j` from the south.
float heightAt(const SmallGeoTiff & raster, unsigned i, unsigned j) {
    return raster.heights[(s_height - 1 - j) * s_width + i];
}

MeshPoint positionOf(unsigned i, unsigned j, double height) {
    return {s_west + (i + 0.5) * s_cell, height, s_north - (s_height - j - 0.5) * s_cell};
}

/// Twice the signed plan area.
double cross(const MeshPoint & a, const MeshPoint & b, const MeshPoint & c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

double planArea(const Mesh & mesh) {
    double area = 0.0;
    for (const auto & t : mesh.triangles)
        area += std::abs(cross(mesh.vertices[t[0]], mesh.vertices[t[1]], mesh.vertices[t[2]])) * 0.5;
    return area;
}

/// Height of the surface at the plan position of `p`; not-a-number beside it.
double surfaceHeight(const Mesh & mesh, const MeshPoint & p) {
    for (const auto & t : mesh.triangles) {
        const MeshPoint &a = mesh.vertices[t[0]], &b = mesh.vertices[t[1]], &c = mesh.vertices[t[2]];
        const double area = cross(a, b, c);
        const double u = cross(p, b, c) / area, v = cross(a, p, c) / area, w = cross(a, b, p) / area;
        if (u < -1e-12 || v < -1e-12 || w < -1e-12) continue;
        return u * a.height + v * b.height + w * c.height;
    }
    return std::nan("");
}

double largestError(const Mesh & mesh, const SmallGeoTiff & raster, const nlohmann::json & node) {
    double error = 0.0;
    const unsigned x = node["x"], y = node["y"], w = node["w"], h = node["h"];
    for (unsigned j = y; j <= y + h; ++j)
        for (unsigned i = x; i <= x + w; ++i) {
            const MeshPoint p = positionOf(i, j, heightAt(raster, i, j));
            const double difference = std::abs(surfaceHeight(mesh, p) - p.height);
            EXPECT_FALSE(std::isnan(difference)) << "a gap at " << i << ", " << j;
            error = std::max(error, difference);
        }
    return error;
}

/// All levels: 0 is the root, `s_deepest` has the leaves.
class Level : public ::testing::TestWithParam<unsigned> {};

TEST_P(Level, VerticesAreRasterValuesToTheLastBit) {
    const SmallGeoTiff raster = hills(false);
    const Tree tree = build(raster, GetParam());
    ASSERT_FALSE(tree.meshes.empty());
    for (const auto & [id, mesh] : tree.meshes) {
        const auto & node = tree.nodes[id];
        EXPECT_EQ(node["vertices"], mesh.vertices.size());
        EXPECT_EQ(node["triangles"], mesh.triangles.size());
        for (const MeshPoint & p : mesh.vertices) {
            const double i = (p.x - s_west) / s_cell - 0.5;
            const double j = s_height - (s_north - p.y) / s_cell - 0.5;
            ASSERT_EQ(std::floor(i), i);
            ASSERT_EQ(std::floor(j), j);
            ASSERT_TRUE(i >= node["x"] && i <= node["x"].get<int>() + node["w"].get<int>());
            ASSERT_TRUE(j >= node["y"] && j <= node["y"].get<int>() + node["h"].get<int>());
            ASSERT_EQ(double(heightAt(raster, unsigned(i), unsigned(j))), p.height);
        }
    }
}

TEST_P(Level, SurfacesCoverTheirDomainOnce) {
    const Tree tree = build(hills(false), GetParam());
    double whole = 0.0;
    for (const auto & [id, mesh] : tree.meshes) {
        const auto & node = tree.nodes[id];
        const double expected = node["w"].get<double>() * node["h"].get<double>() * s_cell * s_cell;
        EXPECT_NEAR(expected, planArea(mesh), expected * 1e-12) << "node " << id;
        whole += expected;
    }
    EXPECT_EQ((s_width - 1) * (s_height - 1) * s_cell * s_cell, whole);
}

TEST_P(Level, ErrorsAreThoseOfTheSurfaces) {
    const SmallGeoTiff raster = hills(false);
    const Tree tree = build(raster, GetParam());
    for (const auto & [id, mesh] : tree.meshes) {
        const auto & node = tree.nodes[id];
        const double error = largestError(mesh, raster, node);
        if (node["kind"] == "grid")
            EXPECT_EQ(0.0, node["error"]) << "node " << id;
        else
            EXPECT_NEAR(std::max(error, 1e-6), node["error"].get<double>(), 1e-3) << "node " << id;
        EXPECT_LE(error, node["error"].get<double>() + 1e-6) << "node " << id;
    }
}

INSTANTIATE_TEST_SUITE_P(LodCommand, Level, ::testing::Values(0U, 1U, 2U, 3U, s_deepest),
                         ::testing::PrintToStringParamName());

TEST(LodCommand, ReportIsATree) {
    const auto nodes = build(hills(false), 0).nodes;
    ASSERT_GT(nodes.size(), 5U);
    EXPECT_TRUE(nodes[0]["parent"].is_null());
    std::map<unsigned, unsigned> childCells;
    for (unsigned id = 0; id < nodes.size(); ++id) {
        const auto & node = nodes[id];
        EXPECT_EQ(id, node["id"]);
        EXPECT_LE(node["vertices"], s_maxVertices);
        EXPECT_LT(node["wall"], 300.0);
        if (id == 0) continue;
        const unsigned parent = node["parent"];
        ASSERT_LT(parent, id) << "parents come first";
        EXPECT_EQ(nodes[parent]["level"].get<unsigned>() + 1, node["level"]);
        EXPECT_EQ("tin", nodes[parent]["kind"]);
        EXPECT_GE(node["x"], nodes[parent]["x"]);
        EXPECT_GE(node["y"], nodes[parent]["y"]);
        childCells[parent] += node["w"].get<unsigned>() * node["h"].get<unsigned>();
    }
    for (const auto & [id, cells] : childCells)
        EXPECT_EQ(nodes[id]["w"].get<unsigned>() * nodes[id]["h"].get<unsigned>(), cells) << "node " << id;
    for (const auto & node : nodes) {
        const bool isLeaf = childCells.count(node["id"]) == 0;
        EXPECT_EQ(isLeaf ? "grid" : "tin", node["kind"]);
    }
}

TEST(LodCommand, VoidsLieATenthOfTheRangeBelowTheLowestHeight) {
    const SmallGeoTiff raster = hills(true);
    const float highest = *std::max_element(raster.heights.begin(), raster.heights.end());
    float lowest = highest;
    for (const float height : raster.heights)
        if (height != -9999.0F) lowest = std::min(lowest, height);
    const double floor = lowest - 0.1 * (highest - lowest);
    const Tree tree = build(raster, s_deepest);
    unsigned fallen = 0;
    for (const auto & [id, mesh] : tree.meshes)
        for (const MeshPoint & p : mesh.vertices) {
            const auto i = unsigned((p.x - s_west) / s_cell);
            const auto j = unsigned(s_height - (s_north - p.y) / s_cell);
            const float height = heightAt(raster, i, j);
            if (height == -9999.0F) {
                ASSERT_NEAR(floor, p.height, 1e-3) << "node " << id;
                ++fallen;
            } else {
                ASSERT_EQ(double(height), p.height);
            }
        }
    EXPECT_GT(fallen, 0U);
}

TEST(LodCommand, TheSameSeedGivesTheSameTree) {
    EXPECT_EQ(build(hills(false), 1, "5").obj, build(hills(false), 1, "5").obj);
}

/// Mirrored along z, with triangles that turn the other way, so that their upper sides stay above.
TEST(LodCommand, AMeshMayBeRightHanded) {
    const auto left = build(hills(false), 1).meshes;
    const auto right = build(hills(false), 1, "1", {"--right-handed"}).meshes;
    ASSERT_EQ(left.size(), right.size());
    for (const auto & [id, mesh] : left) {
        const Mesh & mirrored = right.at(id);
        ASSERT_EQ(mesh.vertices.size(), mirrored.vertices.size());
        for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
            EXPECT_EQ(mesh.vertices[i].x, mirrored.vertices[i].x);
            EXPECT_EQ(mesh.vertices[i].height, mirrored.vertices[i].height);
            EXPECT_EQ(mesh.vertices[i].y, -mirrored.vertices[i].y);
        }
        ASSERT_EQ(mesh.triangles.size(), mirrored.triangles.size());
        for (std::size_t i = 0; i < mesh.triangles.size(); ++i) {
            const auto [a, b, c] = mesh.triangles[i];
            EXPECT_EQ((std::array<unsigned, 3>{a, c, b}), mirrored.triangles[i]);
        }
    }
}

class LodUsage : public ::testing::TestWithParam<WrongUse> {};

TEST_P(LodUsage, IsTold) {
    const RunFolder folder;
    std::vector<std::string> arguments = {"lod", "--terrain", folder.write("t.tif", hills(false).encode()),
                                          "--report", folder.out("r.json")};
    for (const std::string & argument : GetParam().arguments)
        arguments.push_back(argument == "MESH" ? folder.out("m.obj") : argument);
    const RunResult run = runProcess(ZMT_EXECUTABLE, arguments, folder);
    EXPECT_EQ(2, run.status);
    EXPECT_NE(std::string::npos, run.errors.find(GetParam().words)) << run.errors;
    EXPECT_EQ(1, std::count(run.errors.begin(), run.errors.end(), '\n')) << run.errors;
    EXPECT_TRUE(folder.results().empty());
}

INSTANTIATE_TEST_SUITE_P(
    LodCommand, LodUsage,
    ::testing::Values(WrongUse{"TooFewVertices", {"--max-vertices", "49"}, "--max-vertices must be"},
                      WrongUse{"TooManyVertices", {"--max-vertices", "32001"}, "--max-vertices must be"},
                      WrongUse{"NoNumber", {"--max-vertices", "many"}, "max-vertices"},
                      WrongUse{"NegativeLevel", {"--mesh", "-1", "MESH"}, "--mesh"},
                      WrongUse{"LevelIsNoNumber", {"--mesh", "1a", "MESH"}, "--mesh"},
                      WrongUse{"RightHandedNothing", {"--right-handed"}, "--right-handed is for --mesh"},
                      WrongUse{"CrsOfNativeCells", {"--native", "--crs", "EPSG:32645"}, "--native keeps"},
                      WrongUse{"MeshWithoutFile", {"--mesh", "1"}, "--mesh"},
                      WrongUse{"UnknownOption", {"--levels", "3"}, "levels"}),
    [](const auto & info) { return std::string(info.param.name); });

} // namespace
