#include "core/texturedtriangles/texturedtriangletree_impl/texturesizecalculator.h"

#include <gtest/gtest.h>

#include <limits>

#include <nbx/math/matrix4x4base.h>
#include <support/recordedreports.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "trianglemeshes.h"

namespace {

using namespace NBX;
using namespace TriangleMeshes;
using ZMT::CORE::TexturedTriangleTree;
using ZMT::CORE::TriangleContainer;
using Calculator = ZMT::CORE::TextureSizeCalculator;
using TriangleID = TriangleContainer::TriangleID;
using Info = Calculator::TextureInfo;

/// At which a view of 90 degrees is 200 units wide: a pixel of 200 is one unit.
constexpr double s_distance = 100.0, s_fieldOfView = 90.0;
constexpr int s_screen = 200;

SO<Iterator<TriangleID>> ids(std::vector<TriangleID> values) {
    return new NonPersistentArray<TriangleID>(std::move(values));
}

SO<Iterator<TriangleID>> all(const TriangleContainer & container) {
    std::vector<TriangleID> values;
    for (unsigned mesh = 0; mesh < container.numberOfMeshes(); ++mesh)
        for (unsigned i = 0; i < container.numberOfTriangles(mesh); ++i)
            values.push_back({int(mesh), int(i)});
    return ids(std::move(values));
}

std::vector<Info> sizes(const SO<TriangleContainer> & container, double quality = 1.0, int atlasSize = 4096) {
    const SO<Iterator<Info>> result = Calculator::computeTextureInformation(
        all(*container), container, s_distance, s_fieldOfView, s_screen, quality, atlasSize);
    return std::vector<Info>(result->begin(), result->end());
}

/// 40 by 30 units under s from 0.25 to 0.75 and t from 0 to 3.
SO<TriangleContainer> oneTriangle() {
    return new TriangleContainer(
        meshesOf({{wrapper(), setOf({V(0, 0, 0), V(40, 0, 0), V(0, 30, 0)},
                                    {V(0.25, 0, 0), V(0.75, 0, 0), V(0.25, 3, 0)})}}));
}

bool scaling(const std::array<V, 3> & p, const std::array<V, 3> & t, int axis, double & scale) {
    return Calculator::texSpaceToWorldSpaceScaling(p[0], p[1], p[2], t[0], t[1], t[2], axis, scale);
}

TEST(TextureSizeCalculator, UnitsPerTexelAreTheViewByPixelsAndQuality) {
    EXPECT_NEAR(Calculator::viewExtent(s_distance, s_fieldOfView), 200.0, 1e-6);
    EXPECT_EQ(Calculator::viewExtent(50.0, 60.0), 2 * 50.0 * std::tan(60.0 / 2 * 0.01745329252));
    EXPECT_NEAR(Calculator::unitsPerTexel(s_distance, s_fieldOfView, s_screen, 1.0), 1.0, 1e-8);
    EXPECT_NEAR(Calculator::unitsPerTexel(s_distance, s_fieldOfView, 400, 5.0), 0.1, 1e-8);
}

TEST(TextureSizeCalculator, ScaleIsTheLengthOfTheDerivative) {
    double scale = 0.0;
    EXPECT_TRUE(scaling({V(0, 0, 0), V(40, 0, 0), V(0, 30, 0)}, {V(0.25, 0, 0), V(0.75, 0, 0), V(0.25, 3, 0)},
                        0, scale));
    EXPECT_NEAR(scale, 80.0, 1e-9);
    EXPECT_TRUE(scaling({V(0, 0, 0), V(40, 0, 0), V(0, 30, 0)}, {V(0.25, 0, 0), V(0.75, 0, 0), V(0.25, 3, 0)},
                        1, scale));
    EXPECT_NEAR(scale, 10.0, 1e-9);
}

/// Positions are a linear map of the coordinates, whose columns are the derivatives.
TEST(TextureSizeCalculator, ScaleIsThatOfAnyLinearMap) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const auto vector = [&] { return V(unit(random), unit(random), unit(random)); };
    for (unsigned i = 0; i < 1000; ++i) {
        const V alongS = vector() * 50.0, alongT = vector() * 50.0, origin = vector() * 1000.0;
        std::array<V, 3> t, p;
        for (unsigned k = 0; k < 3; ++k) {
            t[k] = V(unit(random), unit(random), 0.0);
            p[k] = origin + alongS * t[k].x + alongT * t[k].y;
        }
        const V e = t[1] - t[0], f = t[2] - t[0];
        if (std::abs(e.x * f.y - e.y * f.x) < 1e-3) continue;
        double s = 0.0, r = 0.0;
        ASSERT_TRUE(scaling(p, t, 0, s));
        ASSERT_TRUE(scaling(p, t, 1, r));
        EXPECT_NEAR(s, alongS.length(), 1e-6);
        EXPECT_NEAR(r, alongT.length(), 1e-6);
    }
}

TEST(TextureSizeCalculator, CoordinatesOnALineGiveTheEstimate) {
    double scale = 0.0;
    EXPECT_TRUE(
        scaling({V(0, 0, 0), V(10, 0, 0), V(0, 30, 0)}, {V(0, 0, 0), V(1, 0, 0), V(2, 0, 0)}, 0, scale));
    EXPECT_EQ(scale, 15.0) << "the longer edge by the larger difference";
    EXPECT_FALSE(
        scaling({V(0, 0, 0), V(10, 0, 0), V(0, 30, 0)}, {V(0, 0, 0), V(1, 0, 0), V(2, 0, 0)}, 1, scale));
    EXPECT_EQ(scale, 15.0) << "left as it was";
}

TEST(TextureSizeCalculator, EqualCoordinatesOrNoNumbersHaveNoScale) {
    double scale = -7.0;
    const std::array<V, 3> p = {V(0, 0, 0), V(10, 0, 0), V(0, 30, 0)};
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(scaling(p, {V(1, 1, 0), V(1, 1, 0), V(1, 1, 0)}, 0, scale));
    EXPECT_FALSE(scaling(p, {V(1, 1, 0), V(1 + 0.99e-10, 1, 0), V(1, 1, 0)}, 0, scale));
    EXPECT_TRUE(scaling(p, {V(0, 1, 0), V(1.01e-10, 1, 0), V(0, 1, 0)}, 0, scale));
    EXPECT_FALSE(scaling(p, {V(nan, 1, 0), V(1, 1, 0), V(1, 1, 0)}, 0, scale = -7.0));
    EXPECT_EQ(scale, -7.0);
}

TEST(TextureSizeCalculator, ScreenScaleIsTheLargestOfTheTrianglesThatHaveOne) {
    const SO<TriangleContainer> container(new TriangleContainer(
        meshesOf({{wrapper(), setOf({V(0, 0, 0), V(40, 0, 0), V(0, 30, 0), V(0, 0, 0), V(90, 0, 0),
                                     V(0, 90, 0), V(0, 0, 0), V(5, 0, 0), V(0, 5, 0)},
                                    {V(0, 0, 0), V(1, 0, 0), V(0, 1, 0), V(3, 3, 0), V(3, 3, 0), V(3, 3, 0),
                                     V(0, 0, 0), V(1, 0, 0), V(0, 0.1, 0)})}})));
    const auto scale = [&](const SO<Iterator<TriangleID>> & triangles, int axis) {
        return Calculator::maxTexSpaceToScreenSpaceScaling(triangles, container, axis, s_distance,
                                                           s_fieldOfView, 400);
    };
    EXPECT_NEAR(scale(all(*container), 0), 80.0, 1e-5) << "the second triangle does not count";
    EXPECT_NEAR(scale(all(*container), 1), 100.0, 1e-5);
    EXPECT_EQ(scale(ids({{0, 1}}), 0), 0.0);
    EXPECT_EQ(scale(ids({}), 0), 0.0);
    EXPECT_EQ(scale(nullptr, 0), 0.0);
}

TEST(TextureSizeCalculator, IndexedTrianglesAreMeasuredAsWell) {
    const SO<Iterator<V>> p = sequence({V(0, 0, 0), V(40, 0, 0), V(0, 30, 0), V(80, 0, 0)});
    const SO<Iterator<V>> t = sequence({V(0, 0, 0), V(1, 0, 0), V(0, 1, 0), V(1, 0, 0)});
    const auto scale = [&](const std::vector<unsigned> & indices, const SO<Iterator<V>> & vertices,
                           const SO<Iterator<V>> & texcoords) {
        return Calculator::maxTexSpaceToScreenSpaceScaling(
            SO<Iterator<unsigned>>(new Array<unsigned>(indices)), vertices, texcoords, 0, s_distance,
            s_fieldOfView, s_screen);
    };
    RecordedReports reports;
    EXPECT_NEAR(scale({0, 1, 2}, p, t), 40.0, 1e-6);
    EXPECT_NEAR(scale({0, 1, 2, 0, 3, 2}, p, t), 80.0, 1e-6);
    EXPECT_EQ(scale({}, p, t), 0.0);
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_EQ(scale({0, 1, 2}, nullptr, t), 0.0);
    EXPECT_EQ(reports.count(0, L"vertices", L"must not be NULL"), 1U) << reports;
    EXPECT_EQ(scale({0, 1, 2}, p, nullptr), 0.0);
    EXPECT_EQ(reports.count(0, L"texcoords", L"must not be NULL"), 1U) << reports;
    EXPECT_NEAR(scale({0, 1, 2, 0}, p, t), 40.0, 1e-6);
    EXPECT_EQ(reports.count(0, L"indices->size() % 3 == 0", L"invalid index iterator"), 1U) << reports;
    scale({0, 1, 2}, p, sequence({V(), V(), V()}));
    EXPECT_EQ(reports.count(0, L"vertices->size() == texcoords->size()",
                            L"vertice iterator do not match texcoords iterator"),
              1U)
        << reports;
    EXPECT_EQ(scale({0, 1, 4}, p, t), 0.0);
    EXPECT_EQ(reports.last().message, L"index out of range");
}

TEST(TextureSizeCalculator, ATextureGetsTheTexelsThatItShowsAndItsBorders) {
    const Info info = sizes(oneTriangle()).at(0);
    EXPECT_EQ(info.width, 40 + 16) << "half of the texture over 40 units";
    EXPECT_EQ(info.height, 30 + 16);
    EXPECT_NEAR(info.bounds.getLLF().x, 0.25 - 0.5 * 8.0 / 40, 1e-9);
    EXPECT_NEAR(info.bounds.getURB().x, 0.75 + 0.5 * 8.0 / 40, 1e-9);
    EXPECT_NEAR(info.bounds.getLLF().y, 0.0 - 3.0 * 8.0 / 30, 1e-9);
    EXPECT_NEAR(info.bounds.getURB().y, 3.0 + 3.0 * 8.0 / 30, 1e-9);
    EXPECT_EQ(info.triangles->size(), 1U);
    EXPECT_EQ(Calculator::BORDER, 8);
}

TEST(TextureSizeCalculator, TexelsAreRounded) {
    EXPECT_EQ(sizes(oneTriangle(), 1.02).at(0).width, 41 + 16);
    EXPECT_EQ(sizes(oneTriangle(), 1.01).at(0).width, 40 + 16);
}

TEST(TextureSizeCalculator, QualityTwoDoublesTheEdgeUpToTheAtlas) {
    EXPECT_EQ(sizes(oneTriangle(), 2.0).at(0).width, 80 + 16);
    EXPECT_EQ(sizes(oneTriangle(), 2.0).at(0).height, 60 + 16);
    EXPECT_EQ(sizes(oneTriangle(), 2.0, 90).at(0).width, 90);
    EXPECT_EQ(sizes(oneTriangle(), 2.0, 90).at(0).height, 76);
}

TEST(TextureSizeCalculator, ATextureOnNoValidTriangleIsOneTexelAndItsBorders) {
    const SO<TriangleContainer> container(new TriangleContainer(meshesOf(
        {{wrapper(), setOf({V(0, 0, 0), V(40, 0, 0), V(0, 30, 0)}, {V(5, 5, 0), V(5, 5, 0), V(5, 5, 0)})}})));
    const Info info = sizes(container).at(0);
    EXPECT_EQ(info.width, 17);
    EXPECT_EQ(info.height, 17);
    EXPECT_EQ(info.bounds, Bounds(V(5, 5, 0)));
}

TEST(TextureSizeCalculator, ExtremeScalesAreCutToTheAtlas) {
    const SO<TriangleContainer> container(
        new TriangleContainer(meshesOf({{wrapper(), setOf({V(0, 0, 0), V(1e300, 0, 0), V(0, 1e300, 0)},
                                                          {V(0, 0, 0), V(1e5, 0, 0), V(0, 1e-9, 0)})}})));
    const Info info = sizes(container).at(0);
    EXPECT_EQ(info.width, 4096);
    EXPECT_EQ(info.height, 4096);
}

TEST(TextureSizeCalculator, EachRunOfAMeshIsOneEntry) {
    std::mt19937 random(3);
    const SO<TriangleContainer> container(new TriangleContainer(
        meshesOf({randomMesh(random, 3), randomMesh(random, 1), randomMesh(random, 2)})));
    std::vector<Info> infos = sizes(container);
    ASSERT_EQ(infos.size(), 3U);
    EXPECT_EQ(infos[0].triangles->size(), 3U);
    EXPECT_EQ(infos[2].triangles->get(1), (TriangleID{2, 1}));
    TexturedTriangleTree::enforceUniqueTextureParameterization(true);
    infos = sizes(container);
    TexturedTriangleTree::enforceUniqueTextureParameterization(false);
    ASSERT_EQ(infos.size(), 6U) << "triangles of their own";
    EXPECT_EQ(infos[3].triangles->get(0), (TriangleID{1, 0}));
    EXPECT_EQ(Calculator::computeTextureInformation(nullptr, container, 1, 1, 1, 1, 1)->size(), 0U);
}

} // namespace
