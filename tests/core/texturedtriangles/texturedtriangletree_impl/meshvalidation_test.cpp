#include "core/texturedtriangles/texturedtriangletree_impl/meshvalidation.h"

#include <gtest/gtest.h>

#include <map>

#include <support/recordedreports.h>

#include "core/texturedtriangles/texturedtriangletree_impl/texturesizecalculator.h"
#include "trianglemeshes.h"

namespace {

using namespace NBX;
using namespace TriangleMeshes;
using ZMT::CORE::MeshValidation;

/// Triangles whose textures are `lengths` units long along s and 1 along t.
Mesh meshOf(const std::vector<double> & lengths) {
    Vectors vertices, texCoords;
    for (const double length : lengths) {
        vertices.insert(vertices.end(), {V(0, 0, 0), V(length, 0, 0), V(0, 1, 0)});
        texCoords.insert(texCoords.end(), {V(0, 0, 0), V(1, 0, 0), V(0, 1, 0)});
    }
    return {wrapper(), setOf(vertices, texCoords)};
}

double scaleOf(const PolygonSet & set, unsigned triangle, int axis) {
    const Vectors p = valuesOf(set.newVertexIterator()), t = valuesOf(set.newTextureIterator(0));
    const std::size_t i = 3 * std::size_t(triangle);
    double scale = -1.0;
    ZMT::CORE::TextureSizeCalculator::texSpaceToWorldSpaceScaling(p[i], p[i + 1], p[i + 2], t[i], t[i + 1],
                                                                  t[i + 2], axis, scale);
    return scale;
}

std::vector<std::vector<double>> groupsOf(const Meshes & meshes) {
    std::vector<std::vector<double>> groups;
    for (const Mesh & mesh : *meshes) {
        groups.emplace_back();
        for (unsigned i = 0; i < mesh.geometry->triangles(); ++i)
            groups.back().push_back(scaleOf(*mesh.geometry, i, 0));
    }
    return groups;
}

TEST(MeshValidation, AGroupReachesUpToTwiceItsFirstScale) {
    using Groups = std::vector<std::vector<double>>;
    const Mesh mesh = meshOf({5, 1, 2, 2.25, 4.5, 1.5});
    const Meshes result = MeshValidation::validate(meshesOf({mesh}));
    EXPECT_EQ(groupsOf(result), (Groups{{1, 1.5, 2}, {2.25, 4.5}, {5}}));
    for (const Mesh & part : *result)
        EXPECT_EQ(part.texture, mesh.texture);
}

TEST(MeshValidation, DegenerateTrianglesAreAmongThemselves) {
    Mesh mesh = meshOf({4, 4, 4});
    Vectors t = valuesOf(mesh.geometry->newTextureIterator(0));
    t[4] = t[5] = t[3];
    mesh.geometry->setTextureIterator(sequence(t));
    const Meshes result = MeshValidation::validate(meshesOf({mesh}));
    ASSERT_EQ(result->size(), 2U);
    EXPECT_EQ(result->get(0).geometry->triangles(), 1U) << "scale -1 comes first";
    EXPECT_EQ(result->get(1).geometry->triangles(), 2U);
}

TEST(MeshValidation, AMeshOfDegenerateTrianglesIsOneGroup) {
    const Mesh mesh{wrapper(), setOf(Vectors(3000, V(1, 2, 3)), Vectors(3000, V(0.5, 0.5, 0)))};
    const Meshes result = MeshValidation::validate(meshesOf({mesh}));
    ASSERT_EQ(result->size(), 1U);
    EXPECT_EQ(result->get(0).geometry->triangles(), 1000U);
    EXPECT_EQ(scaleOf(*result->get(0).geometry, 0, 0), -1.0);
}

TEST(MeshValidation, IsSplitAlongBothAxes) {
    const Mesh mesh{wrapper(),
                    setOf({V(0, 0, 0), V(1, 0, 0), V(0, 1, 0), V(0, 0, 0), V(1, 0, 0), V(0, 9, 0)},
                          {V(0, 0, 0), V(1, 0, 0), V(0, 1, 0), V(0, 0, 0), V(1, 0, 0), V(0, 1, 0)})};
    EXPECT_EQ(MeshValidation::validate(meshesOf({mesh}))->size(), 2U);
}

TEST(MeshValidation, EqualScalesKeepTheirOrderAndColors) {
    const Mesh mesh = meshOf({3, 3, 3});
    mesh.geometry->setColorIterator(
        new Array<Color>({Color::red, Color::red, Color::red, Color::green, Color::green, Color::green,
                          Color::blue, Color::blue, Color::blue}));
    const Meshes result = MeshValidation::validate(meshesOf({mesh}));
    ASSERT_EQ(result->size(), 1U);
    const SO<PolygonSet::Colors> colors = result->get(0).geometry->newColorIterator();
    EXPECT_EQ(colors->get(0), Color::red);
    EXPECT_EQ(colors->get(3), Color::green);
    EXPECT_EQ(colors->get(8), Color::blue);
}

TEST(MeshValidation, EmptyInputGivesNothing) {
    RecordedReports reports;
    EXPECT_EQ(MeshValidation::validate(meshesOf({}))->size(), 0U);
    EXPECT_EQ(
        MeshValidation::validate(meshesOf({{wrapper(), new PolygonSet()}, {wrapper(), nullptr}}))->size(),
        0U);
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_EQ(MeshValidation::validate(nullptr)->size(), 0U);
    EXPECT_EQ(reports.count(0, L"meshes", L"no meshes"), 1U) << reports;
}

TEST(MeshValidation, EveryTriangleEndsInOneMeshOfUniformDensity) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (unsigned round = 0; round < 30; ++round) {
        const Mesh mesh = randomMesh(random, 500);
        std::map<std::array<double, 9>, int> waiting;
        const auto key = [](const Vectors & p, std::size_t i) {
            return std::array<double, 9>{p[i].x,     p[i].y,     p[i].z,     p[i + 1].x, p[i + 1].y,
                                         p[i + 1].z, p[i + 2].x, p[i + 2].y, p[i + 2].z};
        };
        const Vectors all = valuesOf(mesh.geometry->newVertexIterator());
        for (std::size_t i = 0; i < all.size(); i += 3)
            ++waiting[key(all, i)];
        double area = 0.0;
        const Meshes parts = MeshValidation::validate(meshesOf({mesh}));
        for (const Mesh & part : *parts) {
            area += areaOf(*part.geometry);
            const Vectors p = valuesOf(part.geometry->newVertexIterator());
            for (std::size_t i = 0; i < p.size(); i += 3)
                --waiting[key(p, i)];
            for (const int axis : {0, 1}) {
                double least = INFINITY, largest = -INFINITY;
                for (unsigned i = 0; i < part.geometry->triangles(); ++i) {
                    least = std::min(least, scaleOf(*part.geometry, i, axis));
                    largest = std::max(largest, scaleOf(*part.geometry, i, axis));
                }
                EXPECT_TRUE(least < 0.0 ? largest < 0.0 : largest <= 2.0 * least);
            }
        }
        EXPECT_NEAR(area, areaOf(*mesh.geometry), 1e-9 * area);
        for (const auto & [triangle, count] : waiting)
            EXPECT_EQ(count, 0);
    }
}

} // namespace
