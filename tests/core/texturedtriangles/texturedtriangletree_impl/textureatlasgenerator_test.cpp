#include "core/texturedtriangles/texturedtriangletree_impl/textureatlasgenerator.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <nbx/math/bounds.h>
#include <nbx/scene/shape/polygonsettool.h>

#include "support/recordedreports.h"
#include "trianglelists.h"

namespace {

using ZMT::CORE::TextureAtlasGenerator;
using V = NBX::Vector3Base<double>;

constexpr int s_border = 8;

NBX::SO<TextureAtlasGenerator::Vectors> created(const TriangleList & list, double unitsPerTexel,
                                                int atlasSize) {
    return TextureAtlasGenerator::create(newVertices(list).get(), unitsPerTexel, s_border, atlasSize);
}

NBX::SO<TextureAtlasGenerator::Vectors> laidOut(const TriangleList & list, const GroupList & patches,
                                                double unitsPerTexel, int atlasSize, int maxPatchSize = 0,
                                                int border = s_border) {
    return TextureAtlasGenerator::createAtlasParameterization(
        newVertices(list).get(), newGroups(patches).get(), unitsPerTexel, border, atlasSize, maxPatchSize);
}

TriangleList quad(double width, double height) {
    TriangleList list;
    appendQuad(list, V(3, 4, 5), V(0, 0, width), V(0, height, 0));
    return list;
}

/// The box of the coordinates of some triangles, in texels without the factor of the mapping.
NBX::Bounds texels(const NBX::Iterator<V> & coordinates, const std::vector<int> & triangles, int atlasSize) {
    const double scale = atlasSize / (1.0 / atlasSize + 1.0);
    NBX::Bounds box;
    for (const int t : triangles)
        for (unsigned corner = 0; corner < 3; ++corner) {
            const V p = coordinates.get(static_cast<unsigned>(t) * 3 + corner);
            box += V(p.x * scale, p.y * scale, 0.0);
        }
    return box;
}

void expectBox(const NBX::Bounds & box, double left, double bottom, double right, double top) {
    EXPECT_NEAR(box.getLLF().x, left, 1e-9);
    EXPECT_NEAR(box.getLLF().y, bottom, 1e-9);
    EXPECT_NEAR(box.getURB().x, right, 1e-9);
    EXPECT_NEAR(box.getURB().y, top, 1e-9);
}

TEST(TextureAtlasGenerator, OneTriangleAlwaysFits) {
    for (const double size : {1e-9, 1.0, 1e9}) {
        const auto coordinates = created({V(0, 0, 0), V(size, 0, 0), V(0, 0, size)}, 0.1, 64);
        ASSERT_TRUE(coordinates) << size;
        ASSERT_EQ(coordinates->size(), 3U);
        EXPECT_EQ(coordinates->get(0), V(0.125, 0.125, 0));
        EXPECT_EQ(coordinates->get(1), V(0.875, 0.125, 0));
        EXPECT_EQ(coordinates->get(2), V(0.875, 0.875, 0));
    }
}

TEST(TextureAtlasGenerator, APatchLiesWithinItsBorderAtItsResolution) {
    const TriangleList list = quad(10, 5);
    const auto coordinates = laidOut(list, {{0, 1}}, 0.1, 256);
    ASSERT_TRUE(coordinates);
    // 100 by 50 texels; which of them lies along s is free.
    const NBX::Bounds box = texels(*coordinates, {0, 1}, 256);
    const bool isWide = box.diagonal().x > box.diagonal().y;
    expectBox(box, 8, 8, isWide ? 108 : 58, isWide ? 58 : 108);
    // The factor of the mapping itself.
    EXPECT_NEAR(box.getLLF().x * (1.0 / 256 + 1.0) / 256,
                std::min({coordinates->get(0).x, coordinates->get(1).x, coordinates->get(2).x}), 1e-12);
}

TEST(TextureAtlasGenerator, EdgesOfAPatchKeepTheirLengths) {
    const TriangleList list = quad(12, 8);
    const auto coordinates = laidOut(list, {{0, 1}}, 0.125, 256);
    ASSERT_TRUE(coordinates);
    const double texel = (1.0 / 256 + 1.0) / 256;
    for (const auto & [a, b] : {std::pair(0U, 1U), {1U, 2U}, {0U, 2U}, {4U, 5U}}) {
        const V d = coordinates->get(a) - coordinates->get(b);
        EXPECT_NEAR(std::hypot(d.x, d.y), (list[a] - list[b]).length() / 0.125 * texel, 1e-12);
        EXPECT_NEAR(d.z, 0.0, 1e-12) << "all of one plane";
    }
}

TEST(TextureAtlasGenerator, HeightsAboveThePlaneStandBehindTheCoordinates) {
    TriangleList list = quad(12, 8);
    appendQuad(list, V(3.5, 4, 5), V(0, 0, 12), V(0, 8, 0));
    const auto coordinates = laidOut(list, {{0, 1, 2, 3}}, 0.125, 256);
    ASSERT_TRUE(coordinates);
    // The side that is seen: normals show along -x here.
    EXPECT_NEAR(coordinates->get(6).z - coordinates->get(0).z, -0.5, 1e-12);
    EXPECT_NEAR(coordinates->get(6).x, coordinates->get(0).x, 1e-12);
}

TEST(TextureAtlasGenerator, TheLargestTriangleGivesThePlane) {
    const TriangleList wall = quad(12, 8);
    const TriangleList tilted = {V(3, 4, 5), V(3.5, 4, 6), V(3, 5, 5)};
    for (const bool isFirst : {true, false}) {
        TriangleList list = wall;
        list.insert(isFirst ? list.begin() : list.end(), tilted.begin(), tilted.end());
        const auto coordinates = laidOut(list, {{0, 1, 2}}, 0.125, 256);
        ASSERT_TRUE(coordinates);
        const unsigned first = isFirst ? 3 : 0;
        for (unsigned i = first; i < first + 6; ++i)
            EXPECT_NEAR(coordinates->get(i).z, coordinates->get(first).z, 1e-12) << i;
    }
}

struct Sides {
    const char * name;
    double width, height;
    int atlasSize, maxPatchSize;
    double longer, shorter; ///< texels within the border
};

TEST(TextureAtlasGenerator, SidesAreCutToWhatIsPossible) {
    const Sides rows[] = {
        {"rounded up", 10.5, 9.5, 256, 0, 11, 10},
        {"rounded down", 10.49, 9.49, 256, 0, 10, 9},
        {"not below 8", 40, 0.5, 256, 0, 40, 8},
        {"not above the atlas", 1000, 20, 256, 0, 256 - 8 - 16, 20},
        {"beyond all numbers", 1e12, 20, 256, 0, 256 - 8 - 16, 20},
        {"not above the largest patch", 1000, 20, 256, 100, 100 - 16, 20},
        {"both sides", 1000, 900, 256, 100, 100 - 16, 100 - 16},
    };
    for (const Sides & row : rows) {
        const auto coordinates =
            laidOut(quad(row.width, row.height), {{0, 1}}, 1.0, row.atlasSize, row.maxPatchSize);
        ASSERT_TRUE(coordinates) << row.name;
        const V size = texels(*coordinates, {0, 1}, row.atlasSize).diagonal();
        EXPECT_NEAR(std::max(size.x, size.y), row.longer, 1e-6) << row.name;
        EXPECT_NEAR(std::min(size.x, size.y), row.shorter, 1e-6) << row.name;
    }
}

TEST(TextureAtlasGenerator, ABorderWithoutRoomWithinDoesNotFit) {
    EXPECT_FALSE(laidOut(quad(10, 10), {{0, 1}}, 1.0, 24));
    EXPECT_TRUE(laidOut(quad(10, 10), {{0, 1}}, 1.0, 25));
    EXPECT_FALSE(laidOut(quad(10, 10), {{0, 1}}, 1.0, 256, 16));
    EXPECT_TRUE(laidOut(quad(10, 10), {{0, 1}}, 1.0, 256, 17));
    for (const int nonsense : {8, 0, -5})
        EXPECT_FALSE(laidOut(quad(10, 10), {{0, 1}}, 1.0, nonsense));
}

TEST(TextureAtlasGenerator, PatchesWithoutExtentAreSkipped) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    TriangleList list = quad(10, 5);
    for (const V & p : {V(), V(1, 1, 1), V(2, 2, 2), V(nan, 0, 0), V(1, 0, 0), V(0, 1, 0), V(),
                        V(1e-11, 0, 0), V(0, 1e-11, 0)})
        list.push_back(p);
    const auto coordinates = laidOut(list, {{2}, {}, {0, 1}, {3}, {4}, {9, -1}}, 0.1, 256);
    ASSERT_TRUE(coordinates);
    ASSERT_EQ(coordinates->size(), list.size());
    for (unsigned i = 6; i < 15; ++i)
        EXPECT_EQ(coordinates->get(i), V());
    EXPECT_NEAR(texels(*coordinates, {0, 1}, 256).diagonal().length(), std::hypot(100, 50), 1e-9);
}

TEST(TextureAtlasGenerator, NothingIsLaidOutWithoutTriangles) {
    RecordedReports reports;
    EXPECT_FALSE(TextureAtlasGenerator::createAtlasParameterization(nullptr, 1.0, 8, 256, 0));
    EXPECT_FALSE(TextureAtlasGenerator::create(nullptr, 1.0, 8, 256));
    EXPECT_EQ(reports.count(0, L"vertices", L"no iterator"), 2U);
    EXPECT_FALSE(TextureAtlasGenerator::createAtlasParameterization(newVertices(quad(1, 1)).get(), nullptr,
                                                                    1.0, 8, 256, 0));
    EXPECT_EQ(reports.count(0, L"patches", L"no iterator"), 1U);
    const auto nothing = created({}, 1.0, 256);
    ASSERT_TRUE(nothing);
    EXPECT_EQ(nothing->size(), 0U);
}

TEST(TextureAtlasGenerator, TheSumOfAreasIsLookedAtFirst) {
    // The limit is 64 * 64 * 0.25 = 1024 square units.
    EXPECT_TRUE(created(quad(32, 31.99), 0.25, 64));
    EXPECT_FALSE(created(quad(32, 32.01), 0.25, 64));
    const auto fits = [](double width, double height, int maxPatchSize) {
        return bool(TextureAtlasGenerator::createAtlasParameterization(newVertices(quad(width, height)).get(),
                                                                       0.25, s_border, 64, maxPatchSize));
    };
    EXPECT_FALSE(fits(32, 32.01, 0));
    // 40 texels of 0.25 are 10 units; the longest edge is the diagonal, of about 45.
    EXPECT_TRUE(fits(32, 32.01, 40));
    // As long as the triangles are, their weight leaves the same of a square, whatever its size.
    EXPECT_TRUE(fits(3200, 3200, 30));
}

TEST(TextureAtlasGenerator, TooManyPatchesDoNotFit) {
    GroupList patches;
    TriangleList list;
    for (int i = 0; i < 17; ++i) {
        appendQuad(list, V(0, 100.0 * i, 0), V(10, 0, 0), V(0, 0, 10));
        patches.push_back({2 * i, 2 * i + 1});
        const bool fits = i < 16;
        // 10 + 16 texels each: 4 rows of 4 on 104, and 8 texels that none takes.
        EXPECT_EQ(bool(laidOut(list, patches, 1.0, 112)), i < 16) << fits << i;
    }
}

TEST(TextureAtlasGenerator, EveryTriangleOfATownHasItsPlaceAndPatchesLieApart) {
    constexpr int atlasSize = 1024;
    for (const double far : {0.0, 5800000.0}) {
        const TriangleList town = randomTown(5, 40, 10.0, far);
        const auto coordinates = created(town, 0.5, atlasSize);
        ASSERT_TRUE(coordinates);
        ASSERT_EQ(coordinates->size(), town.size());
        const auto groups = TextureAtlasGenerator::groupParallelTriangles(newVertices(town).get());
        std::vector<int> inPatches(town.size() / 3);
        std::vector<NBX::Bounds> boxes;
        for (const std::vector<int> & parallel : listed(groups))
            for (const std::vector<int> & plane : listed(TextureAtlasGenerator::groupCoplanarTriangles(
                     newVertices(town).get(), newNumbers(parallel).get())))
                for (const std::vector<int> & patch : listed(TextureAtlasGenerator::groupRectangularPatches(
                         newVertices(town).get(), newNumbers(plane).get(), s_border, atlasSize))) {
                    for (const int t : patch)
                        ++inPatches[static_cast<std::size_t>(t)];
                    boxes.push_back(texels(*coordinates, patch, atlasSize));
                }
        for (const int t : allOf(town)) {
            const auto i = static_cast<std::size_t>(t);
            const bool hasNormal =
                NBX::PolygonSetTool::getTriangleNormal(town[3 * i], town[3 * i + 1], town[3 * i + 2]) != V();
            EXPECT_EQ(inPatches[i], hasNormal ? 1 : 0) << t;
        }
        EXPECT_GT(boxes.size(), 100U);
        for (std::size_t i = 0; i < boxes.size(); ++i) {
            EXPECT_GE(std::min(boxes[i].getLLF().x, boxes[i].getLLF().y), s_border - 1e-6);
            EXPECT_LE(std::max(boxes[i].getURB().x, boxes[i].getURB().y), atlasSize - s_border + 1e-6);
            for (std::size_t k = 0; k < i; ++k)
                EXPECT_FALSE(boxes[i].expand(s_border - 1e-6).intersects(boxes[k].expand(s_border - 1e-6)));
        }
        for (const V & p : *coordinates)
            EXPECT_TRUE(p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1);
    }
}

TEST(TextureAtlasGenerator, TheSameTrianglesAlwaysLieTheSameWay) {
    const TriangleList town = randomTown(6, 30, 10.0);
    const auto first = created(town, 0.5, 1024), second = created(town, 0.5, 1024);
    ASSERT_TRUE(first && second);
    EXPECT_TRUE(std::equal(first->begin(), first->end(), second->begin()));
}

} // namespace
