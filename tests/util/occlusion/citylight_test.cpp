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
    /// What a place of the atlas of a tree that is one leaf has, from 0 to 1.
    static double shadeAt(const TexturedTriangleTree & tree, const V & place) {
        const auto texture = NBX::soCast<StreamTexture>(tree.getRootAtlas(1));
        const int size = tree.getAtlasSize();
        const auto texel = [size](double c) { return std::clamp(int(c * size), 0, size - 1); };
        const auto * bytes = static_cast<const unsigned char *>(texture->data()->pointer());
        return bytes[std::size_t(texel(place.y)) * std::size_t(size) + std::size_t(texel(place.x))] / 255.0;
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
    const SO<CityModels> city = build(corners, 512);
    const CityLight::Settings settings;
    ASSERT_TRUE(bake(*city, settings));
    const SO<TexturedTriangleTree> tree = city->trees().at(0);
    ASSERT_EQ(2, tree->getNumberOfLayers());
    ASSERT_EQ(1U, tree->getRenderTree()->numberOfNodes());
    std::srand(settings.seed);
    ZMT::UTIL::AmbientOcclusion::LightingConfiguration sky;
    sky.numSkyDirections = settings.directions;
    const LightList lights = LightList::combined(sky);
    RayLight rays, nothing;
    for (std::size_t i = 0; i < corners.size(); i += 3)
        rays.add(corners[i], corners[i + 1], corners[i + 2]);
    rays.commit();
    nothing.commit();
    const SO<NBX::PolygonSet> set = NBX::PolygonSetTool::computeFaceNormals(
        tree->getRenderTree()->root()->content.triangles->newPolygonSet().get());
    ComparedLight compared;
    for (unsigned i = 0; i + 2 < set->newVertexIterator()->size(); i += 3) {
        const V normal = set->newNormalIterator()->get(i);
        for (unsigned k = 0; k < 200; ++k) {
            const double a = (std::rand() % 1000) / 1000.0, b = (1.0 - a) * (std::rand() % 1000) / 1000.0;
            V at, inAtlas;
            for (const auto & [corner, weight] : {std::pair(i, a), {i + 1, b}, {i + 2, 1.0 - a - b}}) {
                at += set->newVertexIterator()->get(corner) * weight;
                inAtlas += set->newTextureIterator(0)->get(corner) * weight;
            }
            const double open =
                std::max(nothing.light(at, normal, lights, 0.0), 0.1 * lights.onOpenPlane().y);
            const double share = rays.light(at, normal, lights, 0.02) / open;
            compared.add(shadeAt(*tree, inAtlas), 0.3 + 0.7 * share);
        }
    }
    RecordProperty("correlation", testing::PrintToString(compared.correlation()));
    RecordProperty("difference", testing::PrintToString(compared.meanDifference()));
    EXPECT_GE(compared.correlation(), 0.98);
    EXPECT_LE(compared.meanDifference(), 0.02);
}

TEST_F(CityLightTest, AHillShadesTheWallThatLooksAtIt) {
    std::vector<V> corners;
    appendHouse({0, 0, 0}, {8, 8, 8}, corners);
    const auto means = [&](const CityLight::Settings & settings) {
        const SO<CityModels> city = build(corners, 256);
        EXPECT_TRUE(bake(*city, settings));
        const SO<TexturedTriangleTree> tree = city->trees().at(0);
        const SO<NBX::PolygonSet> set = NBX::PolygonSetTool::computeFaceNormals(
            tree->getRenderTree()->root()->content.triangles->newPolygonSet().get());
        std::array<double, 2> ofWalls = {0.0, 0.0}; // to the south, and to the north
        for (unsigned i = 0; i + 2 < set->newVertexIterator()->size(); i += 3) {
            const V normal = set->newNormalIterator()->get(i);
            V inAtlas;
            for (unsigned k = 0; k < 3; ++k)
                inAtlas += set->newTextureIterator(0)->get(i + k) * (1.0 / 3.0);
            if (std::abs(normal.z) > 0.5) ofWalls[normal.z > 0.0] += 0.5 * shadeAt(*tree, inAtlas);
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
    const auto bytes = NBX::File::contents(folder + "/a.opaque.city.light");
    unsigned leaves = 0;
    std::uint8_t darkest = 255;
    auto & nodes = *tree->getRenderTree();
    std::vector<ZMT::CORE::RenderTree::NodePointer> waiting{nodes.root()};
    while (!waiting.empty()) {
        const auto node = waiting.back();
        waiting.pop_back();
        for (unsigned i = 0; nodes.hasChildren(node) && i < 4; ++i)
            waiting.push_back(nodes.child(node, i));
        if (!node->content.triangles) continue;
        ++leaves;
        const auto first = bytes.begin() + std::ptrdiff_t(node->content.blockPositions.at(1));
        const auto [least, most] = std::minmax_element(first, first + 128 * 128);
        darkest = std::min(darkest, *least);
        EXPECT_NEAR(255, *most, 3.0) << leaves;
    }
    EXPECT_GE(leaves, 2U);
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
