#include <zmt/util/mapping/uniquetexturemapping.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <set>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/scene/shape/polygonset.h>

#include "support/recordedreports.h"

namespace {

using NBX::PolygonSet;
using NBX::SO;
using V = NBX::Vector3Base<double>;
using Mapping = ZMT::UTIL::UniqueTextureMapping;
using Sets = std::vector<SO<PolygonSet>>;

SO<PolygonSet> set(PolygonSet::PrimitiveType type, std::vector<V> vertices,
                   std::vector<unsigned> indices = {}) {
    return new PolygonSet(type, new NBX::Array<V>(std::move(vertices)),
                          indices.empty() ? nullptr : new NBX::Array<unsigned>(std::move(indices)));
}

SO<NBX::Iterator<SO<PolygonSet>>> sequence(Sets sets) {
    return new NBX::NonPersistentArray<SO<PolygonSet>>(std::move(sets));
}

std::vector<unsigned> values(const SO<NBX::Iterator<unsigned>> & numbers) {
    return std::vector<unsigned>(numbers->begin(), numbers->end());
}

/// Triangles of all sizes, far from each other.
SO<PolygonSet> manyTriangles(unsigned count) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> size(0.0, 60.0);
    std::vector<V> vertices;
    for (unsigned i = 0; i < count; ++i)
        for (int corner = 0; corner < 3; ++corner)
            vertices.emplace_back(1000.0 * i + size(random), size(random), size(random));
    return set(PolygonSet::PT_Triangles, std::move(vertices));
}

TEST(UniqueTextureMapping, NothingGivesTheEmptyRecord) {
    RecordedReports reports;
    for (const auto & meshes :
         {SO<NBX::Iterator<SO<PolygonSet>>>(), sequence({}), sequence({nullptr, new PolygonSet})}) {
        const Mapping::TexturedMeshComposite result = Mapping::create(meshes, 1.0, 1024);
        EXPECT_FALSE(result.textures);
        EXPECT_FALSE(result.meshes);
        EXPECT_FALSE(result.ranges);
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(UniqueTextureMapping, ATinyTriangleTakesTwentyByTwentyTexels) {
    const auto tiny = set(PolygonSet::PT_Triangles, {{0, 0, 0}, {1e-6, 0, 0}, {0, 1e-6, 0}});
    // Of an atlas of 40 by 40 texels it takes a quarter.
    const auto four = Mapping::create(sequence({tiny, tiny, tiny, tiny}), 1.0, 40);
    EXPECT_EQ(1u, four.meshes->size());
    const auto five = Mapping::create(sequence({tiny, tiny, tiny, tiny, tiny}), 1.0, 40);
    EXPECT_EQ(2u, five.meshes->size());
    EXPECT_EQ(2u, five.textures->size());
}

TEST(UniqueTextureMapping, RangesAreRunningTotals) {
    RecordedReports reports;
    const std::vector<V> square = {{0, 0, 0}, {50, 0, 0}, {0, 50, 0}, {50, 50, 0}};
    const auto indexed = set(PolygonSet::PT_Triangles, square, {0, 1, 2, 2, 1, 3});
    const auto result = Mapping::create(sequence({indexed, nullptr, new PolygonSet, indexed}), 1.0, 1024);
    EXPECT_EQ((std::vector<unsigned>{2, 2, 2, 4}), values(result.ranges));
    ASSERT_EQ(1u, result.meshes->size());
    const SO<PolygonSet> mesh = result.meshes->get(0);
    EXPECT_EQ(PolygonSet::PT_Triangles, mesh->getPrimitiveType());
    EXPECT_FALSE(mesh->newIndexIterator());
    ASSERT_EQ(12u, mesh->newVertexIterator()->size());
    const unsigned corners[] = {0, 1, 2, 2, 1, 3};
    for (unsigned i = 0; i < 12; ++i)
        EXPECT_EQ(square[corners[i % 6]], mesh->newVertexIterator()->get(i));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(UniqueTextureMapping, PolygonsThatAreNoTriangleListsAreReportedAndLaidOut) {
    RecordedReports reports;
    const auto quad = set(PolygonSet::PT_Quads, {{0, 0, 0}, {9, 0, 0}, {9, 9, 0}, {0, 9, 0}});
    const auto result = Mapping::create(sequence({quad}), 1.0, 1024);
    EXPECT_EQ(1u, reports.count(2, L"numTris==rangeEnd", L"invalid polygonset")) << reports;
    EXPECT_EQ(1u, reports.size());
    EXPECT_EQ(6u, result.meshes->get(0)->newVertexIterator()->size());
}

TEST(UniqueTextureMapping, NoTwoTrianglesShareATexelAndAllAreThere) {
    constexpr int atlasSize = 256;
    constexpr unsigned count = 120;
    const auto result = Mapping::create(sequence({manyTriangles(count)}), 1.0, atlasSize);
    ASSERT_LT(1u, result.meshes->size());
    std::multiset<double> found;
    for (const SO<PolygonSet> & mesh : *result.meshes) {
        // Where an atlas is smaller than the largest possible one, so are its texels here.
        std::vector<int> owner(atlasSize * atlasSize, -1);
        const auto places = mesh->newTextureIterator(0);
        ASSERT_EQ(mesh->newVertexIterator()->size(), places->size());
        for (unsigned t = 0; t < places->size() / 3; ++t) {
            const V a = places->get(3 * t), b = places->get(3 * t + 1), c = places->get(3 * t + 2);
            found.insert(std::floor(mesh->newVertexIterator()->get(3 * t).x / 1000.0));
            const double x0 = std::min({a.x, b.x, c.x}), x1 = std::max({a.x, b.x, c.x});
            const double y0 = std::min({a.y, b.y, c.y}), y1 = std::max({a.y, b.y, c.y});
            EXPECT_TRUE(x0 > 0.0 && y0 > 0.0 && x1 < 1.0 && y1 < 1.0);
            for (int y = int(y0 * atlasSize); y <= int(y1 * atlasSize); ++y)
                for (int x = int(x0 * atlasSize); x <= int(x1 * atlasSize); ++x) {
                    EXPECT_EQ(-1, owner[std::size_t(y) * atlasSize + std::size_t(x)]);
                    owner[std::size_t(y) * atlasSize + std::size_t(x)] = int(t);
                }
        }
    }
    ASSERT_EQ(count, found.size());
    unsigned number = 0;
    for (const double x : found)
        EXPECT_EQ(number++, x);
}

/// Each triangle has its own coordinates, and not those of another one of the same rectangle.
TEST(UniqueTextureMapping, TheLongestEdgeOfEachTriangleIsItsBase) {
    const auto result = Mapping::create(sequence({manyTriangles(60)}), 0.01, 512); // of 20 by 20 texels each
    unsigned triangles = 0;
    for (const SO<PolygonSet> & mesh : *result.meshes)
        for (unsigned t = 0; t < mesh->newVertexIterator()->size(); t += 3, ++triangles) {
            unsigned longest = 0;
            const auto length = [&](unsigned i) {
                return (mesh->newVertexIterator()->get(t + (i + 1) % 3) -
                        mesh->newVertexIterator()->get(t + i))
                    .length();
            };
            for (unsigned i = 1; i < 3; ++i)
                if (length(i) > length(longest)) longest = i;
            const V along = mesh->newTextureIterator(0)->get(t + (longest + 1) % 3) -
                            mesh->newTextureIterator(0)->get(t + longest);
            EXPECT_NEAR(0.0, std::min(std::abs(along.x), std::abs(along.y)), 1e-12) << t;
            EXPECT_GT(along.length(), 0.01) << t;
        }
    EXPECT_EQ(60u, triangles);
}

TEST(UniqueTextureMapping, AttributesFollowTheirTriangles) {
    const auto mesh = manyTriangles(40);
    const auto vertices = mesh->newVertexIterator();
    mesh->setNormalIterator(vertices);
    mesh->setTextureIterator(vertices, 0);
    std::vector<NBX::Color> colors;
    for (const V & v : *vertices)
        colors.emplace_back(float(v.x), float(v.y), float(v.z), 1.0F);
    mesh->setColorIterator(new NBX::Array<NBX::Color>(std::move(colors)));
    const auto result = Mapping::create(sequence({mesh}), 1.0, 256);
    for (const SO<PolygonSet> & part : *result.meshes)
        for (unsigned i = 0; i < part->newVertexIterator()->size(); ++i) {
            const V v = part->newVertexIterator()->get(i);
            EXPECT_EQ(v, part->newNormalIterator()->get(i));
            EXPECT_EQ(v, part->newTextureIterator(1)->get(i));
            EXPECT_EQ(float(v.y), part->newColorIterator()->get(i)[1]);
        }
}

TEST(UniqueTextureMapping, ATriangleLargerThanTheAtlasIsNotLost) {
    RecordedReports reports;
    const auto large = set(PolygonSet::PT_Triangles, {{0, 0, 0}, {5000, 0, 0}, {0, 3000, 0}});
    const auto result = Mapping::create(sequence({large}), 1.0, 512);
    EXPECT_EQ(1u, result.meshes->size());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(UniqueTextureMapping, TexturesHaveNoImageAndABorderThatIsNotSeen) {
    using Texture = NBX::ImageTexture2DGL;
    const auto result = Mapping::create(sequence({manyTriangles(1)}), 1.0, 256);
    const SO<Texture> texture = result.textures->get(0);
    EXPECT_FALSE(texture->getImage());
    EXPECT_EQ(NBX::Color(0.0F, 0.0F, 0.0F, 0.0F), texture->getBorderColor());
    EXPECT_EQ(Texture::WM_Repeat, texture->getWrapS());
    EXPECT_EQ(Texture::WM_Repeat, texture->getWrapT());
    EXPECT_EQ(Texture::FM_LinearMipmapLinear, texture->getMinFilter());
    EXPECT_EQ(Texture::FM_Linear, texture->getMagFilter());
    EXPECT_EQ(1.0, texture->getAnisotropy());
}

} // namespace
