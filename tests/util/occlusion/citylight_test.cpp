#include <zmt/util/occlusion/citylight.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include <nbx/container/sequence/array.h>
#include <nbx/data/file.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/polygonsettool.h>
#include <zmt/core/texturedtriangles/citymodels.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include "comparedlight.h"
#include "raylight.h"
#include "support/cancelingdisplay.h"
#include "support/glfixture.h"

namespace {

using NBX::SO;
using ZMT::CORE::CityModels;
using ZMT::CORE::TexturedTriangleTree;
using ZMT::UTIL::CityLight;
using ZMT::UTIL::LightList;
using V = NBX::Vector3Base<double>;
using StreamTexture = ZMT::CORE::TTTMemoryController::StreamTexture;

/// The faces of a box, seen from outside.
void appendHouse(const V & low, const V & high, std::vector<V> & corners) {
    const auto corner = [&](unsigned i) {
        return V(i & 1 ? high.x : low.x, i & 2 ? high.y : low.y, i & 4 ? high.z : low.z);
    };
    const std::size_t first = corners.size();
    for (const auto & [a, b, c, d] : {std::array{0U, 1U, 3U, 2U},
                                      {4U, 5U, 7U, 6U},
                                      {0U, 1U, 5U, 4U},
                                      {2U, 3U, 7U, 6U},
                                      {0U, 2U, 6U, 4U},
                                      {1U, 3U, 7U, 5U}})
        for (const unsigned i : {a, b, c, a, c, d})
            corners.push_back(corner(i));
    const V middle = (low + high) * 0.5;
    for (std::size_t i = first; i < corners.size(); i += 3) {
        const V normal = (corners[i + 1] - corners[i]).cross(corners[i + 2] - corners[i]);
        // The normal of front faces is turned round, as axes are left-handed.
        if (normal.dot(corners[i] - middle) > 0.0) std::swap(corners[i + 1], corners[i + 2]);
    }
}

class CityLightTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        std::filesystem::create_directories(folder);
    }
    void TearDown() override {
        TexturedTriangleTree::enforceUniqueTextureParameterization(false);
        std::filesystem::remove_all(folder);
        GLFixture::TearDown();
    }
    std::wstring wide(const std::string & name) const {
        return NBX::StringUtils::Utf8String2WString(folder + "/" + name);
    }
    /// Texels of a quarter of a metre where they fit into one atlas.
    SO<CityModels> build(const std::vector<V> & corners, int atlasSize) {
        TexturedTriangleTree::enforceUniqueTextureParameterization(true);
        const SO<NBX::SceneThing> scene(new NBX::SceneThing);
        scene->append(
            new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new NBX::Array<V>(std::vector<V>(corners))));
        const auto drawn = TexturedTriangleTree::createOptimizedScene(scene, 100.0, wide("a.city"), true, 1.0,
                                                                      800, 90.0, atlasSize, nullptr);
        return new CityModels(drawn, {1000.0, 50.0, 2000.0}, {}, {});
    }
    bool bake(const CityModels & city, const CityLight::Settings & settings = {}) {
        return CityLight::bake(city, settings, canvas,
                               [](const std::wstring & textures) { return textures + L".light"; });
    }
    /// The light of a leaf, its finest level row by row.
    std::vector<std::uint8_t> lightOf(const TexturedTriangleTree & tree, const ZMT::CORE::RenderNode & leaf) {
        const auto texels = std::size_t(tree.getAtlasSize()) * std::size_t(tree.getAtlasSize());
        const auto * root = static_cast<const std::uint8_t *>(
            NBX::soCast<StreamTexture>(tree.getRootAtlas(1))->data()->pointer());
        if (tree.getRenderTree()->numberOfNodes() == 1) return {root, root + texels};
        const auto bytes = NBX::File::contents(folder + "/a.opaque.city.light");
        const auto first = bytes.begin() + std::ptrdiff_t(leaf.blockPositions.at(1));
        return {first, first + std::ptrdiff_t(texels)};
    }
    /// What a place of the atlas of the whole tree has in that of a leaf, from 0 to 1.
    static double shadeAt(const std::vector<std::uint8_t> & light, const V & place, double scale) {
        const int size = int(std::sqrt(double(light.size())));
        const auto texel = [&](double c) { return std::size_t((c * scale - std::floor(c * scale)) * size); };
        return light[texel(place.y) * std::size_t(size) + texel(place.x)] / 255.0;
    }
    static std::vector<const ZMT::CORE::RenderNode *> leavesOf(const TexturedTriangleTree & tree) {
        std::vector<const ZMT::CORE::RenderNode *> leaves;
        auto & nodes = *tree.getRenderTree();
        std::vector<ZMT::CORE::RenderTree::NodePointer> waiting{nodes.root()};
        while (!waiting.empty()) {
            const auto node = waiting.back();
            waiting.pop_back();
            if (node->content.triangles) leaves.push_back(&node->content);
            for (unsigned i = 0; nodes.hasChildren(node) && i < 4; ++i)
                waiting.push_back(nodes.child(node, i));
        }
        return leaves;
    }
    /// The light of all leaves beside that of rays, at places at random.
    ComparedLight compareWithRays(const TexturedTriangleTree & tree, const std::vector<V> & corners,
                                  const CityLight::Settings & settings) {
        std::srand(settings.seed);
        ZMT::UTIL::AmbientOcclusion::LightingConfiguration sky;
        sky.numSkyDirections = settings.directions;
        const LightList lights = LightList::combined(sky);
        RayLight rays, nothing;
        for (std::size_t i = 0; i < corners.size(); i += 3)
            rays.add(corners[i], corners[i + 1], corners[i + 2]);
        rays.commit();
        nothing.commit();
        ComparedLight compared;
        for (const ZMT::CORE::RenderNode * leaf : leavesOf(tree)) {
            const std::vector<std::uint8_t> light = lightOf(tree, *leaf);
            const SO<NBX::PolygonSet> set =
                NBX::PolygonSetTool::computeFaceNormals(leaf->triangles->newPolygonSet().get());
            for (unsigned i = 0; i + 2 < set->newVertexIterator()->size(); i += 3) {
                const V normal = set->newNormalIterator()->get(i);
                for (unsigned k = 0; k < 100; ++k) {
                    const double a = (std::rand() % 1000) / 1000.0,
                                 b = (1.0 - a) * (std::rand() % 1000) / 1000.0;
                    V at, inTree;
                    for (const auto & [corner, weight] :
                         {std::pair(i, a), {i + 1, b}, {i + 2, 1.0 - a - b}}) {
                        at += set->newVertexIterator()->get(corner) * weight;
                        inTree += set->newTextureIterator(0)->get(corner) * weight;
                    }
                    const double open =
                        std::max(nothing.light(at, normal, lights, 0.0), 0.1 * lights.onOpenPlane().y);
                    compared.add(shadeAt(light, inTree, leaf->textureScaleFactor),
                                 0.3 + 0.7 * rays.light(at, normal, lights, 0.02) / open);
                }
            }
        }
        return compared;
    }

    const std::string folder = testing::TempDir() + "zmt_citylight_" + std::to_string(::getpid());
};

/// A house of 5 m beside a wall of 16 m.
std::vector<V> houseAndWall() {
    std::vector<V> corners;
    appendHouse({0, 0, 0}, {8, 5, 8}, corners);
    appendHouse({-4, 0, 11}, {12, 16, 13}, corners);
    return corners;
}

TEST_F(CityLightTest, FacesSeeTheSkyAsRaysDo) {
    const std::vector<V> corners = houseAndWall();
    // One leaf, some in one picture, and several pictures.
    for (const auto & [atlasSize, leaves] : {std::pair(512, 1U), {128, 3U}, {64, 17U}}) {
        const SO<CityModels> city = build(corners, atlasSize);
        const CityLight::Settings settings;
        ASSERT_TRUE(bake(*city, settings));
        const SO<TexturedTriangleTree> tree = city->trees().at(0);
        ASSERT_EQ(2, tree->getNumberOfLayers());
        EXPECT_GE(leavesOf(*tree).size(), leaves);
        const ComparedLight compared = compareWithRays(*tree, corners, settings);
        EXPECT_GE(compared.correlation(), 0.98) << atlasSize;
        EXPECT_LE(compared.meanDifference(), 0.02) << atlasSize;
    }
}

TEST_F(CityLightTest, AHillShadesTheWallThatLooksAtIt) {
    std::vector<V> corners;
    appendHouse({0, 0, 0}, {8, 8, 8}, corners);
    const auto means = [&](const CityLight::Settings & settings) {
        const SO<CityModels> city = build(corners, 256);
        EXPECT_TRUE(bake(*city, settings));
        const SO<TexturedTriangleTree> tree = city->trees().at(0);
        const ZMT::CORE::RenderNode & leaf = tree->getRenderTree()->root()->content;
        const auto light = lightOf(*tree, leaf);
        const SO<NBX::PolygonSet> set =
            NBX::PolygonSetTool::computeFaceNormals(leaf.triangles->newPolygonSet().get());
        std::array<double, 2> ofWalls = {0.0, 0.0}; // to the south, and to the north
        for (unsigned i = 0; i + 2 < set->newVertexIterator()->size(); i += 3) {
            const V normal = set->newNormalIterator()->get(i);
            V inAtlas;
            for (unsigned k = 0; k < 3; ++k)
                inAtlas += set->newTextureIterator(0)->get(i + k) * (1.0 / 3.0);
            if (std::abs(normal.z) > 0.5) ofWalls[normal.z > 0.0] += 0.5 * shadeAt(light, inAtlas, 1.0);
        }
        return ofWalls;
    };
    CityLight::Settings settings;
    settings.directions = 100;
    const auto level = means(settings);
    EXPECT_NEAR(1.0, level[0], 0.02);
    EXPECT_NEAR(1.0, level[1], 0.02);
    // The city's origin lies at 2000 north, and 50 m high.
    settings.groundAt = [](const ZMT::RASTER::MapPlace & place) {
        return place.y > 2016.0 ? 50.0 + std::min(place.y - 2016.0, 40.0) : 50.0;
    };
    const auto beside = means(settings);
    EXPECT_NEAR(1.0, beside[0], 0.02);
    EXPECT_LT(beside[1], 0.8);
    settings.groundAt = [](const ZMT::RASTER::MapPlace &) { return std::nan(""); };
    EXPECT_NEAR(1.0, means(settings)[1], 0.02);
}

TEST_F(CityLightTest, LeavesOfALargerTreeHaveTheirOwnLight) {
    std::vector<V> corners;
    for (int i = 0; i < 9; ++i)
        appendHouse({20.0 * (i % 3), 0, 20.0 * (i / 3)}, {20.0 * (i % 3) + 12, 9, 20.0 * (i / 3) + 12},
                    corners);
    const SO<CityModels> city = build(corners, 128);
    CityLight::Settings settings;
    settings.directions = 20;
    ASSERT_TRUE(bake(*city, settings));
    const SO<TexturedTriangleTree> tree = city->trees().at(0);
    EXPECT_GE(tree->getRenderTree()->numberOfNodes(), 5U);
    EXPECT_EQ(TexturedTriangleTree::TextureFormatLuminance8, tree->getLayerFormat(1));
    std::uint8_t darkest = 255;
    for (const ZMT::CORE::RenderNode * leaf : leavesOf(*tree)) {
        const auto light = lightOf(*tree, *leaf);
        const auto [least, most] = std::minmax_element(light.begin(), light.end());
        darkest = std::min(darkest, *least);
        EXPECT_NEAR(255, *most, 3.0) << "what is open";
    }
    EXPECT_NEAR(0.3 * 255, darkest, 1.0) << "what looks down, and nothing is darker";
    EXPECT_TRUE(bake(*city, settings)) << "again";
    EXPECT_EQ(2, tree->getNumberOfLayers());
}

TEST_F(CityLightTest, ACancelLeavesNoLayer) {
    const SO<CityModels> city = build(houseAndWall(), 512);
    {
        const CancelingDisplay display;
        EXPECT_FALSE(bake(*city));
    }
    EXPECT_EQ(1, city->trees().at(0)->getNumberOfLayers());
    EXPECT_FALSE(NBX::File::isFile(folder + "/a.opaque.city.light"));
}

} // namespace
