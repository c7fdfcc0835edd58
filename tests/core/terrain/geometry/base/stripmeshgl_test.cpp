#include "core/terrain/geometry/base/stripmeshgl.h"

#include "support/glfixture.h"

using NBX::VertexAttributeShapeGL;
using ZMT::CORE::StripMesh;
using ZMT::CORE::StripMeshGL;
using Numbers = std::vector<unsigned>;

namespace {

class StripMeshGLTest : public GLFixture {
protected:
    NBX::SO<VertexAttributeShapeGL> upload(unsigned vertices, const StripMesh::Strips & strips) {
        const std::vector<StripMesh::Point> positions(vertices, StripMesh::Point(1, 2, 3));
        return NBX::soCast<VertexAttributeShapeGL>(
            StripMeshGL::upload(engine.get(), StripMeshGL::upload(engine.get(), positions), strips));
    }

    template <class T> static std::vector<T> contentOf(NBX::BufferObjectGL & buffer) {
        const auto * first = static_cast<const T *>(buffer.mapPointer(NBX::BufferObjectGL::MA_Read));
        std::vector<T> content(first, first + buffer.bytes() / sizeof(T));
        buffer.unmapPointer();
        return content;
    }
};

TEST_F(StripMeshGLTest, UploadsVerticesNumbersAndRanges) {
    const auto shape = upload(4, {{0, 1, 2, 3, 2, 1}, {4, 6}});
    EXPECT_EQ(shape->primitiveType(), VertexAttributeShapeGL::PT_TriangleStrip);
    EXPECT_FALSE(shape->boundingBox().isDefined());
    EXPECT_EQ(shape->vertices()->count(), 4U);
    EXPECT_EQ(contentOf<float>(*shape->vertices()), (std::vector<float>{1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3}));
    EXPECT_EQ(contentOf<std::uint16_t>(*shape->indices()), (std::vector<std::uint16_t>{0, 1, 2, 3, 2, 1}));
    EXPECT_EQ(contentOf<std::uint32_t>(*shape->ranges()), (Numbers{4, 6}));
    EXPECT_EQ(shape->primitives().counts, (std::vector<int>{4, 2}));
}

TEST_F(StripMeshGLTest, StripsWithoutNumbersAreTheVerticesAsTheyCome) {
    const auto shape = upload(7, {{}, {4, 7}});
    EXPECT_FALSE(shape->indices());
    EXPECT_EQ(shape->primitives().firsts, (std::vector<int>{0, 4}));
    EXPECT_EQ(upload(70000, {{}, {70000}})->primitives().counts, (std::vector<int>{70000}));
}

TEST_F(StripMeshGLTest, MoreVerticesThanSixteenBitsCanNumberAreReported) {
    EXPECT_EQ(upload(65536, {{0, 1, 65535}, {3}})->primitives().counts, (std::vector<int>{3}));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_TRUE(upload(65537, {{0, 1, 65536}, {3}})->primitives().counts.empty());
    EXPECT_EQ(reports.count(L"more vertices than 16 bits can number: 65537"), 1U) << reports;
    reports.clear();
}

TEST_F(StripMeshGLTest, StripsThatReachBeyondTheVerticesAreNotDrawn) {
    EXPECT_TRUE(upload(2, {{0, 1, 2}, {3}})->primitives().counts.empty());
    EXPECT_EQ(reports.count(L"an index lies beyond the vertices"), 1U) << reports;
    reports.clear();
}

} // namespace
