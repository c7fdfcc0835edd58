#include "core/texturedtriangles/modellift.h"

#include <array>
#include <cmath>
#include <fstream>

#include <nbx/container/sequence/array.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <support/glfixture.h>
#include <support/temporaryfolder.h>
#include <zmt/core/texturedtriangles/cityassembly.h>

#include "core/texturedtriangles/modelnumber.h"

namespace ZMT::CORE {
namespace {

using NBX::SO;
using V = NBX::Vector3Base<double>;
using Mesh = NBX::MappedVertexAttributeShapeGL;

struct Wall {
    double left, right, top;
};
/// Of each model: one with a texture, one without, one to be seen through.
constexpr std::array<Wall, 3> s_walls = {Wall{0, 6, 8}, Wall{6, 9, 5}, Wall{9, 12, 3}};
constexpr double s_distance = 20.0; ///< from one model to the next
constexpr std::array<double, 4> s_heights = {3, 40, -10, 22};

SO<NBX::PolygonSet> newWall(const Wall & wall, bool hasTexture) {
    std::vector<V> vertices, texCoords;
    for (const auto & [s, t] : {std::pair(0, 0), {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}}) {
        vertices.emplace_back(s ? wall.right : wall.left, t * wall.top, 0.0);
        texCoords.emplace_back(s, t, 0.0);
    }
    SO<NBX::PolygonSet> set(
        new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new NBX::Array<V>(std::move(vertices))));
    if (hasTexture) set->setTextureIterator(new NBX::Array<V>(std::move(texCoords)));
    return set;
}

SO<NBX::ImageTexture2DGL> newTexture(const NBX::Color & color) {
    const SO<NBX::Image> image(new NBX::MemoryImage(8, 8, NBX::LS_RGBA));
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            image->setColor(x, y, color);
    return new NBX::ImageTexture2DGL(image);
}

SO<NBX::SceneThing> newModel() {
    static const SO<NBX::ImageTexture2DGL> & brick =
        *new SO<NBX::ImageTexture2DGL>(newTexture(NBX::Color(1.0, 1.0, 0.0)));
    static const SO<NBX::ImageTexture2DGL> & glass =
        *new SO<NBX::ImageTexture2DGL>(newTexture(NBX::Color(1.0, 1.0, 1.0, 0.6)));
    const SO<NBX::SceneThing> model(new NBX::SceneThing);
    const auto append = [&](NBX::RenderObj * attribute, unsigned wall, bool hasTexture) {
        const SO<NBX::SceneThing> node(new NBX::SceneThing(model.get()));
        node->append(attribute);
        node->append(newWall(s_walls[wall], hasTexture).get());
    };
    append(brick.get(), 0, true);
    append(new NBX::ColorAttribute(NBX::Color::red), 1, false);
    append(glass.get(), 2, true);
    return model;
}

class ModelLiftTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        CityAssembly assembly;
        for (std::size_t i = 0; i < s_heights.size(); ++i)
            assembly.add(newModel(), 6, "", "", CityAssembly::onMap(s_distance * double(i), 0, s_heights[i]));
        const SO<NBX::SceneThing> drawn = TexturedTriangleTree::createOptimizedScene(
            assembly.scene({}), 100.0, NBX::StringUtils::Utf8String2WString(path("c.city")), true, 1.0, 800,
            90.0, 64, nullptr);
        reports.clear(); // that glass has another format
        city = new CityModels(drawn, {}, {}, assembly.table({}));
        root->append(new NBX::Camera(SO<NBX::LookAt>(new NBX::LookAt({0, 0, -500}, {0, 0, 0})).get(),
                                     new NBX::Ortho(s_left, s_right, s_bottom, s_top, -1000, 10000)));
        root->append(drawn.get());
    }

    static std::string path(const std::string & name) { return std::getenv("TMPDIR") + ("/" + name); }
    static bool isWall(double x, double y, const std::vector<double> & lifts) {
        for (std::size_t i = 0; i < s_heights.size(); ++i)
            for (const Wall & wall : s_walls) {
                const double u = x - s_distance * double(i), v = y - s_heights[i] - lifts[i];
                if (u > wall.left && u < wall.right && v > 0.0 && v < wall.top) return true;
            }
        return false;
    }
    /// Whether walls, picture and rays are the same, one letter for each pixel in which they are not.
    std::string differences(const std::vector<double> & lifts) {
        const SO<NBX::Image> image = draw();
        std::string result;
        const int side = image->width();
        for (int row = 0; row < side; ++row)
            for (int column = 0; column < side; ++column) {
                // Walls end at whole numbers, where no pixel of these sizes has its middle.
                const double x = s_left + (s_right - s_left) * (column + 0.5) / side;
                const double y = s_bottom + (s_top - s_bottom) * (row + 0.5) / side;
                const auto color = pixel(image, column, row);
                const bool isDrawn = color[0] + color[1] + color[2] > 64;
                const bool expected = isWall(x, y, lifts);
                if (isDrawn != expected) result += 'p';
                if (isHit(x, y) != expected) result += 'r';
            }
        return result;
    }
    bool isHit(double x, double y) {
        const SO<NBX::RayTracingTechnique> ray(
            new NBX::RayTracingTechnique(NBX::Ray(V(x, y, -10.0), V(0, 0, 1))));
        return ray->trace(engine.get(), city->scene().get());
    }
    /// All meshes that are drawn or hit.
    std::vector<SO<Mesh::Data>> allData() const {
        std::vector<SO<Mesh::Data>> result;
        for (const SO<TexturedTriangleTree> & tree : city->trees()) {
            if (tree->getUntexturedGeometry()) result.push_back(tree->getUntexturedGeometry()->data());
            if (!tree->getRenderTree()) continue;
            const RenderNode & node = tree->getRenderTree()->root()->content;
            result.push_back(node.vertexData);
            result.push_back(node.triangles->data());
            for (const SO<Mesh> & mesh : node.originalGeometry)
                result.push_back(mesh->data());
        }
        return result;
    }

    static constexpr double s_left = -4, s_right = 84, s_bottom = -44, s_top = 132;
    const TemporaryFolder folder_;
    SO<CityModels> city;
};

TEST_F(ModelLiftTest, EveryVertexKnowsItsModel) {
    const std::vector<SO<Mesh::Data>> all = allData();
    ASSERT_EQ(all.size(), 7U) << "of two trees, one of them with a part without texture";
    for (const SO<Mesh::Data> & data : all) {
        const SO<Mesh::Buffer> models = data->buffer(ModelNumber::bufferName());
        const SO<Mesh::Buffer> positions = data->buffer(Mesh::Data::VERTEX_ID);
        ASSERT_TRUE(models);
        ASSERT_EQ(models->count(), positions->count());
        for (unsigned i = 0; i < positions->count(); ++i)
            EXPECT_EQ(models->value(i, 0), std::floor(positions->value(i, 0) / s_distance));
    }
}

TEST_F(ModelLiftTest, EachModelIsDrawnAndHitAtItsOwnHeight) {
    const std::vector<std::vector<double>> cases = {{0, 0, 0, 0},      {3, 40, -10, 22}, {6, 80, -20, 44},
                                                    {-1, -20, 5, -11}, {0, 7, 0, 0},     {0, 0, 0, 0}};
    for (const std::vector<double> & lifts : cases) {
        SCOPED_TRACE(testing::PrintToString(lifts));
        city->lift(lifts, 1000.0 * (lifts[0] != 0.0));
        EXPECT_EQ(differences(lifts), "");
        const NBX::Bounds box = city->boundingBox();
        double low = 1e9, high = -1e9;
        for (std::size_t i = 0; i < lifts.size(); ++i) {
            low = std::min(low, s_heights[i] + lifts[i]);
            high = std::max(high, s_heights[i] + lifts[i] + s_walls[0].top);
        }
        EXPECT_EQ(box.getLLF().y, low);
        EXPECT_EQ(box.getURB().y, high);
        for (const SO<Mesh::Data> & data : allData())
            for (unsigned i = 0; i < data->vertices(); ++i) {
                const auto model = std::size_t(data->buffer(ModelNumber::bufferName())->value(i, 0));
                const double y =
                    data->buffer(Mesh::Data::VERTEX_ID)->value(i, 1) - s_heights[model] - lifts[model];
                EXPECT_TRUE(y == 0.0 || y == 8.0 || y == 5.0 || y == 3.0) << y;
            }
    }
}

/// Back and forth a thousand times, by numbers that no float has.
TEST_F(ModelLiftTest, NothingAddsUp) {
    const auto written = [&] {
        city->write(path("c.city"));
        std::ifstream file(path("c.city"), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    const std::string before = written();
    for (int i = 0; i < 1000; ++i)
        city->lift({i * 0.1, -i / 3.0, 1e5 / (i + 1), 1e-7}, 0.3);
    city->lift({3, 40, -10, 22}, 0.0);
    EXPECT_EQ(differences({3, 40, -10, 22}), "");
    EXPECT_TRUE(written() == before) << "what is written is never lifted";
    EXPECT_EQ(differences({3, 40, -10, 22}), "") << "writing puts nothing down";
    city->lift({}, 0.0);
    EXPECT_TRUE(written() == before);
    const SO<CityModels> back = CityModels::load(path("c.city"));
    back->lift({3, 40, -10, 22}, 0.0);
    EXPECT_EQ(back->boundingBox().getURB().y, 88.0) << "numbers are stored";
}

TEST_F(ModelLiftTest, ModelsAreToldWhereTheyStand) {
    city->lift({0, 100, 0, 0}, 0.0);
    EXPECT_EQ(city->modelAt({22, 145, 0}, 0.1), &city->models()[1]);
    EXPECT_EQ(city->modelAt({22, 45, 0}, 0.1), nullptr);
    EXPECT_EQ(city->modelAt({42, -5, 0}, 0.1), &city->models()[2]);
}

/// Whose box it lies in counts for nothing where triangles tell their models.
TEST_F(ModelLiftTest, HitsTellTheModelOfTheTriangleAndItsLift) {
    const auto at = [&](double x, double y) {
        const NBX::Ray ray(V(x, y, -10.0), V(0, 0, 1));
        const SO<NBX::RayTracingTechnique> technique(new NBX::RayTracingTechnique(ray));
        EXPECT_TRUE(technique->trace(engine.get(), city->scene().get())) << x << " " << y;
        const auto & hit = technique->nearestHit();
        const CityModels::Hit model = city->modelHit(*hit.shape, ray, hit.point, 0.1);
        return std::pair(model.model ? model.model - city->models().data() : -1, model.lift);
    };
    city->lift({1, 100, 0, -60}, 7.0);
    for (const double x : {2.0, 7.5, 10.5}) {
        EXPECT_EQ(at(x, 5.0), std::pair(std::ptrdiff_t(0), 1.0));
        EXPECT_EQ(at(x + s_distance, 141.0), std::pair(std::ptrdiff_t(1), 100.0));
        EXPECT_EQ(at(x + 3.0 * s_distance, -37.0), std::pair(std::ptrdiff_t(3), -60.0));
    }
}

/// Cities that were built before models had numbers, and numbers that somebody else has written.
TEST_F(ModelLiftTest, WhatBelongsToNoModelIsLiftedByTheRest) {
    const std::vector<double> lifts = {0, 0, 0, 0};
    for (const SO<Mesh::Data> & data : allData()) {
        const SO<Mesh::Buffer> models = data->buffer(ModelNumber::bufferName());
        auto * number = static_cast<float *>(models->mapPointer());
        for (unsigned i = 0; i < models->count(); ++i)
            number[i] = std::array{NAN, -1.0F, 4.0F, INFINITY}[std::size_t(number[i])];
    }
    city->lift(lifts, 11.0);
    EXPECT_EQ(differences({11, 11, 11, 11}), "");
    for (const SO<Mesh::Data> & data : allData())
        data->setBuffer(ModelNumber::bufferName(), nullptr);
    city->lift({}, 0.0);
    city->lift(lifts, 22.0);
    EXPECT_EQ(differences({22, 22, 22, 22}), "");
    city->lift({}, 0.0);
    for (const SO<Mesh::Data> & data : allData())
        data->setBuffer(ModelNumber::bufferName(), new Mesh::Buffer(0x1406, 1, 2)); // of too few floats
    city->lift(lifts, 33.0);
    EXPECT_EQ(differences({33, 33, 33, 33}), "");
}

} // namespace
} // namespace ZMT::CORE
