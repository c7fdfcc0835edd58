#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>

#include <gtest/gtest.h>

#include <cmath>

#include "core/terrain/geometry/hybrid/microtrianglesdataiterator.h"
#include <support/recordedreports.h>
#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>

#include <nbx/object/wo.h>
#include <nbx/scene/shape/polygonset.h>

#include "support/testterrain.h"

using NBX::SO;
using ZMT::CORE::MicroTrianglesData;
using ZMT::CORE::MicroTrianglesData_Iterator;
using Point = NBX::Vector3Base<double>;

namespace {

class MicroTrianglesDataTest : public testing::Test {
protected:
    SO<ZMT::CORE::HybridData> hybrid =
        ZMT::CORE::CreateHybridData::create(TestTerrain::grid({4, 3, 0, 0, 1, 1}, TestTerrain::bumpy),
                                            std::vector<std::vector<Point>>{{{1.5, 99.0, 0.5}}});
    SO<MicroTrianglesData> micro{new MicroTrianglesData(hybrid.get(), {1, 2, 12, 2, 6, 12})};
    RecordedReports reports;
};

TEST_F(MicroTrianglesDataTest, ItsVerticesAreCornersOfTriangles) {
    ASSERT_EQ(hybrid->vertices(), 13U);
    const unsigned numbers[] = {1, 2, 12, 2, 6, 12};
    ASSERT_EQ(micro->vertices(), 6U);
    for (unsigned v = 0; v < 6; ++v) {
        EXPECT_EQ(micro->convertToContainerIndex(v), numbers[v]);
        EXPECT_EQ(micro->vertex(v), hybrid->vertex(numbers[v]));
        EXPECT_EQ(micro->normal(v), hybrid->normal(numbers[v]));
        EXPECT_EQ(micro->isGridVertex(v), numbers[v] < 12);
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(MicroTrianglesDataTest, ItsBoxHoldsAllVertices) {
    NBX::Bounds box;
    for (unsigned v = 0; v < 6; ++v)
        box += micro->vertex(v);
    EXPECT_EQ(micro->boundingBox(), box);
    EXPECT_EQ(micro->boundingBox(), box);
    EXPECT_EQ(box.getURB().y, 99.0);
    const SO<MicroTrianglesData> empty(new MicroTrianglesData(hybrid.get(), {}));
    EXPECT_FALSE(empty->boundingBox().isDefined());
}

TEST_F(MicroTrianglesDataTest, VerticesOutOfRangeAreReported) {
    micro->vertex(6);
    micro->normal(6);
    micro->isGridVertex(6);
    micro->convertToContainerIndex(6);
    EXPECT_EQ(reports.count(0, L"v < vertices()", L"v out of range"), 4U) << reports;
}

TEST_F(MicroTrianglesDataTest, NoContainerIsReported) {
    const SO<MicroTrianglesData> lost(new MicroTrianglesData(nullptr, {0, 1, 2}));
    EXPECT_EQ(reports.count(0, L"container", L"no container"), 1U) << reports;
    EXPECT_EQ(lost->vertex(0), Point());
    EXPECT_FALSE(lost->isGridVertex(0));
}

TEST_F(MicroTrianglesDataTest, WhatACellDoesNotProvideIsReported) {
    micro->calculateHeight({});
    micro->hasUndefinedHeight({});
    micro->isUndefinedHeightValue(0.0);
    micro->getCellSize();
    EXPECT_FALSE(micro->resampleRasterData(nullptr));
    EXPECT_FALSE(micro->extractMesh({}, nullptr));
    const wchar_t * const names[] = {L"calculateHeight", L"hasUndefinedHeight", L"isUndefinedHeightValue",
                                     L"getCellSize",     L"resampleRasterData", L"extractMesh"};
    ASSERT_EQ(reports.size(), 6U);
    for (unsigned i = 0; i < 6; ++i) {
        EXPECT_EQ(reports[i].level, 3);
        EXPECT_EQ(reports[i].condition, L"L\"Not implemented\"");
        EXPECT_EQ(reports[i].message, std::wstring(L"MicroTrianglesData::") + names[i] + L"()");
    }
}

TEST_F(MicroTrianglesDataTest, IteratorsGiveVerticesAndNormals) {
    const SO<MicroTrianglesData_Iterator> vertices(
        new MicroTrianglesData_Iterator(micro.get(), MicroTrianglesData_Iterator::IM_Vertices));
    const SO<MicroTrianglesData_Iterator> normals(
        new MicroTrianglesData_Iterator(micro.get(), MicroTrianglesData_Iterator::IM_Normals));
    ASSERT_EQ(vertices->size(), 6U);
    ASSERT_EQ(normals->size(), 6U);
    for (unsigned v = 0; v < 6; ++v) {
        EXPECT_EQ(vertices->get(v), micro->vertex(v));
        EXPECT_EQ(normals->get(v), micro->normal(v));
    }
    EXPECT_EQ(vertices->container(), micro.get());
}

/// What a ray has hit may be asked when the terrain is gone.
TEST_F(MicroTrianglesDataTest, IteratorsKeepTheGrid) {
    SO<MicroTrianglesData_Iterator> vertices(
        new MicroTrianglesData_Iterator(micro.get(), MicroTrianglesData_Iterator::IM_Vertices));
    const Point top = micro->vertex(2);
    const NBX::WO<ZMT::CORE::HybridData> grid(hybrid.get());
    hybrid = nullptr;
    micro = nullptr;
    ASSERT_TRUE(grid);
    EXPECT_EQ(vertices->get(2), top);
    vertices = nullptr;
    EXPECT_FALSE(grid) << "and no longer";
}

} // namespace
