#include <zmt/core/terrain/texture/perpixellightingeffectshadergl.h>

#include <cmath>
#include <random>

#include <support/glfixture.h>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/effect/additivemultitexturingeffectgl.h>
#include <nbx/gl/effect/modulatemultitexturingeffectgl.h>
#include <nbx/gl/effect/passessetup.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/texture/perpixellightingeffectgl.h>

using NBX::Color;
using ZMT::CORE::PerPixelLightingEffectGL;
using ZMT::CORE::PerPixelLightingEffectShaderGL;
using Point = NBX::Vector3Base<double>;
using Rgb = std::array<double, 3>;

namespace {

constexpr int s_size = 64;
constexpr int s_tolerance = 2;

class PerPixelLightingShaderTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        std::mt19937 random(11);
        std::normal_distribution<double> component;
        std::uniform_int_distribution<int> byte(0, 255);
        for (int y = 0; y < s_size; ++y)
            for (int x = 0; x < s_size; ++x) {
                const Point n = Point(component(random), std::abs(component(random)), component(random));
                const Point u = n.normalized();
                normals->setColor(x, y, Color(u.x * 0.5 + 0.5, u.y * 0.5 + 0.5, u.z * 0.5 + 0.5));
                for (int c = 0; c < 3; ++c)
                    *image->pixelComponentsU8(x, y, c) = static_cast<unsigned char>(byte(random));
            }
    }
    void TearDown() override {
        NBX::EngineGL::setMaxTextureUnitsLimit(0);
        GLFixture::TearDown();
    }

    /// One texel for each pixel of the picture.
    static NBX::SO<NBX::TextureGL> textureOf(const NBX::SO<NBX::MemoryImage> & image) {
        const auto matrix = NBX::Matrix4x4Base<double>::scaling({0.5, 0.5, 1.0}) *
                            NBX::Matrix4x4Base<double>::translation({1.0, 1.0, 0.0});
        return new NBX::ImageTexture2DGL(image, NBX::TextureGL::WM_Repeat, NBX::TextureGL::WM_Repeat,
                                         NBX::TextureGL::FM_Nearest, NBX::TextureGL::FM_Nearest, 1.0, matrix);
    }
    static NBX::SO<NBX::Attribute> imageEffect(const NBX::SO<NBX::MemoryImage> & image) {
        auto * textures = new NBX::Array<NBX::SO<NBX::TextureGL>>;
        textures->append(textureOf(image));
        auto * weights = new NBX::Array<double>;
        weights->append(1.0);
        return new NBX::AdditiveMultiTexturingEffectGL(textures, weights, nullptr, 0.0, false);
    }
    static NBX::SO<NBX::Attribute> modulation(const NBX::SO<NBX::MemoryImage> & image) {
        auto * textures = new NBX::Array<NBX::SO<NBX::TextureGL>>;
        textures->append(textureOf(image));
        return new NBX::ModulateMultiTexturingEffectGL(textures, nullptr, false);
    }
    NBX::SO<NBX::Attribute> light(const Point & direction, double ambient) const {
        return new PerPixelLightingEffectGL(textureOf(normals).get(), nullptr, direction, ambient);
    }
    /// Fills the picture.
    static NBX::SO<NBX::Shape> quad(const Color & color) {
        auto * vertices = new NBX::Array<Point>;
        auto * colors = new NBX::Array<Color>;
        for (const auto & [x, y] : {std::pair{-1.0, -1.0}, {1.0, -1.0}, {1.0, 1.0}, {-1.0, 1.0}}) {
            vertices->append({x, y, 0.0});
            colors->append(color);
        }
        NBX::SO<NBX::PolygonSet> set =
            new NBX::PolygonSet(NBX::PolygonSet::PT_Quads, NBX::SO<NBX::PolygonSet::Vertices>(vertices));
        set->setColorIterator(NBX::SO<NBX::PolygonSet::Colors>(colors));
        return set;
    }

    /// What the light does with a picture, by the formula.
    double lightAt(int x, int y, const Point & direction, double ambient) const {
        const Color c = normals->getColor(x, y);
        const Point n(2.0 * c[0] - 1.0, 2.0 * c[1] - 1.0, 2.0 * c[2] - 1.0);
        return ambient + (1.0 - ambient) * std::clamp(n.dot(direction.normalized()), 0.0, 1.0);
    }
    double imageAt(int x, int y, unsigned c) const { return image->getColor(x, y)[c]; }

    /// The largest difference of the picture from a formula, with effects from the top to the bottom.
    int worst(const std::vector<NBX::SO<NBX::Attribute>> & topFirst, const Color & color,
              const std::function<double(int x, int y, unsigned c)> & formula) {
        root->clear();
        root->append(texGen.get());
        for (const auto & effect : topFirst)
            root->append(effect.get());
        root->append(quad(color).get());
        const std::vector<int> before = stateOfGL();
        const NBX::SO<NBX::Image> picture = draw();
        EXPECT_EQ(before, stateOfGL());
        int result = 0;
        for (int y = 0; y < s_size; ++y)
            for (int x = 0; x < s_size; ++x)
                for (unsigned c = 0; c < 3; ++c)
                    result = std::max(result, std::abs(pixel(picture, x, y)[c] -
                                                       int(std::lround(formula(x, y, c) * 255.0))));
        return result;
    }

    NBX::SO<NBX::TexGenGL> texGen = new NBX::TexGenGL;
    NBX::SO<NBX::MemoryImage> normals = new NBX::MemoryImage(s_size, s_size, NBX::LS_RGB);
    NBX::SO<NBX::MemoryImage> image = new NBX::MemoryImage(s_size, s_size, NBX::LS_RGB);
};

TEST_F(PerPixelLightingShaderTest, LightsByTheNormalsOfItsTexture) {
    for (const unsigned units : {2U, 3U, 0U}) {
        NBX::EngineGL::setMaxTextureUnitsLimit(units);
        for (const Point & direction : {Point(0, 1, 0), Point(-1, 1, 1), Point(3, 0.5, 0), Point(0, 0, -7)})
            for (const double ambient : {0.0, 0.3, 1.0}) {
                const auto formula = [&](int x, int y, unsigned) {
                    return lightAt(x, y, direction, ambient);
                };
                EXPECT_LE(worst({light(direction, ambient)}, Color::white, formula), s_tolerance)
                    << units << " units, " << direction.x << ", ambient " << ambient;
            }
    }
}

TEST_F(PerPixelLightingShaderTest, ItsOwnGeneratorMapsTheNormals) {
    const NBX::SO<NBX::Attribute> effect(
        new PerPixelLightingEffectGL(textureOf(normals).get(), texGen.get(), {-1, 1, 1}, 0.3));
    texGen = new NBX::TexGenGL(NBX::TexGenGL::M_ObjectLinear,
                               NBX::Matrix4x4Base<double>::translation({0.5, 0.25, 0.0}));
    const auto formula = [&](int x, int y, unsigned) { return lightAt(x, y, {-1, 1, 1}, 0.3); };
    EXPECT_LE(worst({effect}, Color::white, formula), s_tolerance);
    EXPECT_GT(worst({light({-1, 1, 1}, 0.3)}, Color::white, formula), 50);
}

TEST_F(PerPixelLightingShaderTest, MultipliesThePictureBeneath) {
    const Point direction(-1, 1, 1);
    const Color color(0.9, 0.5, 0.7, 1.0);
    const auto lit = [&](int x, int y) { return lightAt(x, y, direction, 0.3); };
    for (const unsigned units : {2U, 3U, 0U}) {
        NBX::EngineGL::setMaxTextureUnitsLimit(units);
        EXPECT_LE(worst({light(direction, 0.3)}, color,
                        [&](int x, int y, unsigned c) { return lit(x, y) * color[c]; }),
                  s_tolerance)
            << units;
        EXPECT_LE(worst({light(direction, 0.3), imageEffect(image)}, color,
                        [&](int x, int y, unsigned c) { return lit(x, y) * color[c] * imageAt(x, y, c); }),
                  s_tolerance)
            << units;
        EXPECT_LE(worst({modulation(image), light(direction, 0.3)}, color,
                        [&](int x, int y, unsigned c) { return lit(x, y) * color[c] * imageAt(x, y, c); }),
                  s_tolerance)
            << units;
        EXPECT_LE(worst({light(direction, 0.3), light({0, 1, 0}, 0.5), imageEffect(image)}, color,
                        [&](int x, int y, unsigned c) {
                            return lit(x, y) * lightAt(x, y, {0, 1, 0}, 0.5) * color[c] * imageAt(x, y, c);
                        }),
                  s_tolerance)
            << units;
    }
}

TEST_F(PerPixelLightingShaderTest, BothCodesOfNormalMapsAreUnderstood) {
    // Light maps of chunked terrains hold trunc(127 c + 128).
    const Point n = Point(0.6, 0.64, -0.48);
    const auto code = [](double c) { return static_cast<unsigned char>(c * 127.0 + 128.0); };
    for (int y = 0; y < s_size; ++y)
        for (int x = 0; x < s_size; ++x)
            for (int c = 0; c < 3; ++c)
                *normals->pixelComponentsU8(x, y, c) = code(n[unsigned(c)]);
    const Point direction(1, 1, 0);
    const double expected = n.dot(direction.normalized());
    EXPECT_LE(worst({light(direction, 0.0)}, Color::white, [&](int, int, unsigned) { return expected; }),
              s_tolerance);
}

TEST_F(PerPixelLightingShaderTest, WithoutTwoUnitsTheEffectIsLeftOut) {
    NBX::EngineGL::setMaxTextureUnitsLimit(1);
    const Color color(0.9, 0.5, 0.7, 1.0);
    for (int frame = 0; frame < 3; ++frame)
        EXPECT_LE(worst({light({-1, 1, 1}, 0.3)}, color, [&](int, int, unsigned c) { return color[c]; }),
                  s_tolerance);
    EXPECT_EQ(reports.count(2, L"false",
                            L"the graphics card cannot show this effect, which is left out: "
                            L"ZMT::CORE::PerPixelLightingEffectGL"),
              1U)
        << reports;
    reports.clear();
}

TEST_F(PerPixelLightingShaderTest, AskForVersionAndUnits) {
    const NBX::SO<PerPixelLightingEffectShaderGL> shader(new PerPixelLightingEffectShaderGL);
    const NBX::SO<NBX::Attribute> effect = light({-1, 1, 1}, 0.3);
    const auto * attribute = dynamic_cast<const NBX::MonoAttribute *>(effect.get());
    EXPECT_EQ(shader->target(), PerPixelLightingEffectGL::ClassNameNBX());
    EXPECT_TRUE(shader->canBeUsed(engine.get(), attribute));
    EXPECT_FALSE(shader->canBeUsed(engine.get(), nullptr));
    EXPECT_FALSE(shader->canBeUsed(nullptr, attribute));
    NBX::EngineGL::setMaxTextureUnitsLimit(2);
    EXPECT_TRUE(shader->canBeUsed(engine.get(), attribute));
    NBX::EngineGL::setMaxTextureUnitsLimit(1);
    EXPECT_FALSE(shader->canBeUsed(engine.get(), attribute));
}

TEST_F(PerPixelLightingShaderTest, EffectsThatCannotBeUsedAreReported) {
    PerPixelLightingEffectShaderGL & shader = *new PerPixelLightingEffectShaderGL;
    const NBX::SO<PerPixelLightingEffectShaderGL> held(&shader);
    const NBX::SO<PerPixelLightingEffectGL> effect(
        new PerPixelLightingEffectGL(textureOf(normals).get(), nullptr, {0, 1, 0}, 0.3));
    {
        NBX::EngineGL::setMaxTextureUnitsLimit(1);
        NBX::PassesSetup passes(engine.get());
        shader.updatePasses(engine.get(), effect.get(), passes);
        EXPECT_EQ(reports.count(0, L"canBeUsed(engine, effect)", L"internal error"), 1U) << reports;
        EXPECT_EQ(passes.texturesUsedInCurrentPass(), 0U);
    }
    NBX::EngineGL::setMaxTextureUnitsLimit(0);
    effect->setNormalTexture(nullptr);
    reports.clear();
    NBX::PassesSetup passes(engine.get());
    shader.updatePasses(engine.get(), effect.get(), passes);
    EXPECT_EQ(reports.count(0, L"normalTexture", L"no normal texture"), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(passes.texturesUsedInCurrentPass(), 0U);
    reports.clear();
}

TEST_F(PerPixelLightingShaderTest, BeginsANextPassWhereTheStagesDoNotFit) {
    PerPixelLightingEffectShaderGL & shader = *new PerPixelLightingEffectShaderGL;
    const NBX::SO<PerPixelLightingEffectShaderGL> held(&shader);
    const NBX::SO<PerPixelLightingEffectGL> effect(
        new PerPixelLightingEffectGL(textureOf(normals).get(), nullptr, {0, 1, 0}, 0.3));
    const struct { unsigned units, passesForOne, passesForTwo; } rows[] = {{2, 2, 3}, {3, 1, 2}, {8, 1, 2}};
    for (const auto & row : rows) {
        NBX::EngineGL::setMaxTextureUnitsLimit(row.units);
        NBX::PassesSetup passes(engine.get());
        shader.updatePasses(engine.get(), effect.get(), passes);
        EXPECT_EQ(passes.numberOfPasses(), row.passesForOne) << row.units;
        EXPECT_EQ(passes.texturesUsedInCurrentPass(), 2U);
        shader.updatePasses(engine.get(), effect.get(), passes);
        EXPECT_EQ(passes.numberOfPasses(), row.passesForTwo) << row.units;
        EXPECT_EQ(passes.texturesUsedInCurrentPass(), 2U);
    }
}

TEST_F(PerPixelLightingShaderTest, SpoiltValuesLightNothingOrEverything) {
    const NBX::SO<PerPixelLightingEffectGL> effect(
        new PerPixelLightingEffectGL(textureOf(normals).get(), nullptr, {0, 0, 0}, 2.0));
    EXPECT_EQ(reports.size(), 2U) << reports;
    reports.clear();
    EXPECT_LE(worst({effect.get()}, Color::white, [](int, int, unsigned) { return 1.0; }), s_tolerance);
    effect->setLightAmbient(std::nan(""));
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
    EXPECT_LE(worst({effect.get()}, Color::white, [](int, int, unsigned) { return 0.0; }), s_tolerance);
}

} // namespace
