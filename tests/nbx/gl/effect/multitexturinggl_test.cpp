#include "nbx/gl/effect/multitexturinggl.h"

#include <algorithm>
#include <functional>
#include <random>

#include "support/glfixture.h"

#include <nbx/container/sequence/array.h>
#include <nbx/engine/shapepainter.h>
#include <nbx/gl/effect/additivemultitexturingeffectgl.h>
#include <nbx/gl/effect/decalmultitexturingeffectgl.h>
#include <nbx/gl/effect/interpolatedmultitexturingeffectgl.h>
#include <nbx/gl/effect/modulatemultitexturingeffectgl.h>
#include <nbx/gl/effect/passessetup.h>
#include <nbx/gl/effect/texturingeffectshadergl.h>
#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>
#include <nbx/gl/mesh/vertexattributeshapegl.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>

using namespace NBX;

namespace {

constexpr int size = 64;
constexpr int tolerance = 2;

/// Each pass rounds the picture to 8 bits once more.
int toleranceOf(int passes) {
    return std::max(tolerance, int(1.0 + 0.6 * passes));
}

using Rgb = std::array<double, 3>;

/// A rectangle in the plane of the picture, drawn in immediate mode in double precision.
class ImmediateQuad : public Shape {
    NBX_CLASS(ImmediateQuad, Shape)
public:
    ImmediateQuad(double left, double right, double z, const Color & color)
        : Shape(true), left_(left), right_(right), z_(z), color_(color) {}

    void draw() const {
        glColor4fv(color_.data());
        const double corners[4][3] = {{left_, -1, z_}, {right_, -1, z_}, {left_, 1, z_}, {right_, 1, z_}};
        glBegin(GL_TRIANGLE_STRIP);
        for (const auto & corner : corners)
            glVertex3dv(corner);
        glEnd();
        glColor4f(1.0F, 1.0F, 1.0F, 1.0F);
    }

private:
    double left_, right_, z_;
    Color color_;
};
NBX_CLASS_IMPL(ImmediateQuad, Shape)

int paintings = 0;

class ImmediateQuadPainter : public ShapePainter {
public:
    ID target() const override { return ImmediateQuad::ClassNameNBX(); }
    bool render(Engine *, const Shape * shape) override {
        ++paintings;
        static_cast<const ImmediateQuad *>(shape)->draw();
        return true;
    }
};
const bool registered = (EngineGL::registerHandler(new ImmediateQuadPainter), true);

SO<Shape> newPolygonQuad(double left, double right, double z, const Color & color) {
    auto * vertices = new Array<Vector3Base<double>>;
    auto * colors = new Array<Color>;
    for (const auto & [x, y] : {std::pair{left, -1.0}, {right, -1.0}, {right, 1.0}, {left, 1.0}}) {
        vertices->append({x, y, z});
        colors->append(color);
    }
    SO<PolygonSet> quad = new PolygonSet(PolygonSet::PT_Quads, SO<PolygonSet::Vertices>(vertices));
    quad->setColorIterator(SO<PolygonSet::Colors>(colors));
    return quad;
}

SO<Shape> newBufferQuad(EngineGL * engine, double left, double right, double z, const Color & color) {
    const auto l = float(left), r = float(right), d = float(z);
    const std::array<float, 3> corners[] = {{l, -1, d}, {r, -1, d}, {l, 1, d}, {r, 1, d}};
    const std::array<float, 4> c{color[0], color[1], color[2], color[3]};
    const std::array<float, 4> colors[] = {c, c, c, c};
    SO<VertexAttributeShapeGL> quad = new VertexAttributeShapeGL(
        VertexAttributeShapeGL::PT_TriangleStrip,
        new VertexAttributeBufferObjectGL<std::array<float, 3>>(engine, 4, corners));
    quad->setColors(new VertexAttributeBufferObjectGL<std::array<float, 4>>(engine, 4, colors));
    return quad;
}

/// One texel for each pixel of the picture.
Matrix4x4Base<double> pictureMatrix() {
    return Matrix4x4Base<double>::scaling({0.5, 0.5, 1.0}) *
           Matrix4x4Base<double>::translation({1.0, 1.0, 0.0});
}

SO<TextureGL> newRandomTexture(LayerSequence sequence, std::mt19937 & random) {
    SO<MemoryImage> image = new MemoryImage(size, size, sequence);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int y = 0; y < size; ++y)
        for (int i = 0; i < size * image->numberOfLayers(); ++i)
            image->lineComponentsU8(y)[i] = static_cast<unsigned char>(byte(random));
    return new ImageTexture2DGL(image, TextureGL::WM_Repeat, TextureGL::WM_Repeat, TextureGL::FM_Nearest,
                                TextureGL::FM_Nearest, 1.0, pictureMatrix());
}

SO<TextureGL> newUniformTexture(const Color & color, LayerSequence sequence = LS_RGBA) {
    SO<MemoryImage> image = new MemoryImage(size, size, sequence);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x)
            image->setColor(x, y, color);
    return new ImageTexture2DGL(image, TextureGL::WM_Repeat, TextureGL::WM_Repeat, TextureGL::FM_Nearest,
                                TextureGL::FM_Nearest, 1.0, pictureMatrix());
}

struct Texel {
    Rgb rgb;
    double alpha;
    double factor; ///< of interpolation
};

Texel texelOf(const SO<TextureGL> & texture, int x, int y) {
    const SO<Image> image = static_cast<ImageTexture2DGL *>(texture.get())->getImage();
    const Color c = image->getColor(x, y);
    const double luminance = 0.299 * c[0] + 0.587 * c[1] + 0.114 * c[2];
    return {{c[0], c[1], c[2]}, c[3], texture->hasAlpha() ? c[3] : luminance};
}

double cut(double value) {
    return std::clamp(value, 0.0, 1.0);
}

/// An effect, and the same by the formula.
struct Case {
    SO<Attribute> effect;
    std::function<Rgb(const Rgb & picture, const Rgb & lit, int x, int y)> formula;
};

using Textures = std::vector<SO<TextureGL>>;

Case additive(const Textures & textures, const std::vector<double> & weights, double previous) {
    auto * sequence = new Array<SO<TextureGL>>(textures);
    auto * numbers = new Array<double>(weights);
    return {new AdditiveMultiTexturingEffectGL(sequence, numbers, nullptr, previous, false),
            [=](const Rgb & picture, const Rgb & lit, int x, int y) {
                Rgb result;
                for (unsigned c = 0; c < 3; ++c) {
                    double sum = std::max(previous, 0.0) * picture[c];
                    for (std::size_t i = 0; i < textures.size(); ++i) {
                        const double w = i < weights.size() ? std::max(weights[i], 0.0) : 1.0;
                        sum += w * texelOf(textures[i], x, y).rgb[c] * lit[c];
                    }
                    result[c] = cut(sum);
                }
                return result;
            }};
}

Case decal(const Textures & textures, double opacity = 1.0) {
    return {new DecalMultiTexturingEffectGL(new Array<SO<TextureGL>>(textures), nullptr, false, opacity),
            [=](Rgb picture, const Rgb & lit, int x, int y) {
                for (const SO<TextureGL> & texture : textures) {
                    const Texel t = texelOf(texture, x, y);
                    const double alpha = t.alpha * opacity;
                    for (unsigned c = 0; c < 3; ++c)
                        picture[c] = cut(t.rgb[c] * alpha * lit[c] + picture[c] * (1.0 - alpha));
                }
                return picture;
            }};
}

Case modulate(const Textures & textures) {
    return {new ModulateMultiTexturingEffectGL(new Array<SO<TextureGL>>(textures), nullptr, false),
            [=](Rgb picture, const Rgb &, int x, int y) {
                for (const SO<TextureGL> & texture : textures)
                    for (unsigned c = 0; c < 3; ++c)
                        picture[c] *= texelOf(texture, x, y).rgb[c];
                return picture;
            }};
}

Case interpolated(const SO<TextureGL> & factor, const SO<TextureGL> & first, const SO<TextureGL> & second) {
    return {new InterpolatedMultiTexturingEffectGL(factor.get(), first.get(), second.get(), nullptr, nullptr,
                                                   nullptr, false),
            [=](const Rgb & picture, const Rgb & lit, int x, int y) {
                const double f = texelOf(factor, x, y).factor;
                Rgb result;
                for (unsigned c = 0; c < 3; ++c) {
                    const double a = first ? texelOf(first, x, y).rgb[c] * lit[c] : picture[c];
                    result[c] = cut((1.0 - f) * a + f * texelOf(second, x, y).rgb[c] * lit[c]);
                }
                return result;
            }};
}

} // namespace

class MultiTexturingGLTest : public GLFixture {
protected:
    void TearDown() override {
        EngineGL::setMaxTextureUnitsLimit(0);
        GLFixture::TearDown();
    }

    /// Effects bottom first, above shapes that show `lit` on pixel (x, y); a negative value is background.
    void expectFormula(const std::vector<Case> & bottomFirst, const std::vector<SO<Shape>> & shapes,
                       const std::function<Rgb(int x, int y)> & lit, const std::string & name) {
        root->clear();
        root->append(new TexGenGL());
        for (auto i = bottomFirst.rbegin(); i != bottomFirst.rend(); ++i)
            root->append(i->effect.get());
        for (const SO<Shape> & shape : shapes)
            root->append(shape.get());
        for (const unsigned units : {1U, 2U, 3U, 4U, 0U}) {
            EngineGL::setMaxTextureUnitsLimit(units);
            const std::vector<int> before = stateOfGL();
            paintings = 0;
            const SO<Image> image = draw();
            EXPECT_EQ(before, stateOfGL());
            const int passes = paintings / int(shapes.size());
            int worst = 0, worstX = 0, worstY = 0;
            for (int y = 0; y < size; ++y)
                for (int x = 0; x < size; ++x) {
                    const int difference = differenceAt(image, bottomFirst, lit(x, y), x, y);
                    if (difference > worst) worst = difference, worstX = x, worstY = y;
                }
            EXPECT_LE(worst, toleranceOf(passes))
                << name << " with " << units << " units, worst at " << worstX << ", " << worstY;
        }
    }

    int differenceAt(const SO<Image> & image, const std::vector<Case> & bottomFirst, const Rgb & lit, int x,
                     int y) {
        Rgb picture = lit;
        const bool isBackground = lit[0] < 0.0;
        if (isBackground)
            picture = {0.0, 0.0, 0.0};
        else
            for (const Case & c : bottomFirst)
                picture = c.formula(picture, lit, x, y);
        const std::array<int, 4> p = pixel(image, x, y);
        int difference = std::abs(p[3] - (isBackground ? 0 : 255));
        for (unsigned c = 0; c < 3; ++c)
            difference = std::max(difference, std::abs(p[c] - int(std::lround(picture[c] * 255.0))));
        return difference;
    }

    /// A white quad over the whole picture.
    void expectFormula(const std::vector<Case> & bottomFirst, const std::string & name) {
        expectFormula(
            bottomFirst, {new ImmediateQuad(-1, 1, 0, Color::white)},
            [](int, int) {
                return Rgb{1, 1, 1};
            },
            name);
    }

    SO<TextureGL> texture(LayerSequence sequence) { return newRandomTexture(sequence, random); }

    std::mt19937 random{7};
};

TEST_F(MultiTexturingGLTest, WithoutEffectsTheShapesAreDrawnOnce) {
    root->append(new ImmediateQuad(-1, 1, 0, Color(0.2, 0.4, 0.6)));
    paintings = 0;
    const SO<Image> image = draw();
    EXPECT_EQ(1, paintings);
    EXPECT_EQ((std::array<int, 4>{51, 102, 153, 255}), pixel(image, 5, 5));
}

TEST_F(MultiTexturingGLTest, EachEffectAlone) {
    for (const LayerSequence s : {LS_RGB, LS_RGBA, LS_Luminance, LS_LuminanceAlpha, LS_BGRA}) {
        const std::string name = "layers " + std::to_string(s);
        expectFormula({additive({texture(s)}, {1.0}, 0.0)}, name + " additive");
        expectFormula({decal({texture(s)})}, name + " decal");
        expectFormula({decal({texture(s)}, 0.4)}, name + " translucent decal");
        expectFormula({modulate({texture(s)})}, name + " modulate");
        expectFormula({interpolated(texture(s), texture(LS_RGB), texture(LS_RGB))}, name + " interpolated");
        expectFormula({interpolated(texture(s), nullptr, texture(LS_RGB))}, name + " interpolated, no first");
    }
}

TEST_F(MultiTexturingGLTest, AdditiveWeights) {
    struct {
        std::vector<double> weights;
        double previous;
    } const cases[] = {
        {{0.5}, 0.0},        {{0.5}, 0.5},      {{0.3}, 0.2},           {{1.0}, 1.0},
        {{0.25, 0.75}, 0.0}, {{1.5}, 0.0},      {{0.7, 0.7, 0.7}, 0.0}, {{0.2, 0.3}, 0.5},
        {{2.5}, 0.3},        {{0.4}, 1.5},      {{0.4}, 4.2},           {{}, 0.0},
        {{1.0, 0.0}, 0.0},   {{0.0, 0.5}, 0.5}, {{0.5, -1.0}, -2.0},    {{0.2, 0.2}, 0.1},
        {{0.0, 0.0}, 0.5},   {{0.0, 0.0}, 0.0}, {{0.0}, 1.0},           {{0.1, 0.2, 0.3}, 0.4},
    };
    for (const auto & c : cases) {
        std::string name = "additive on " + std::to_string(c.previous) + ":";
        for (const double w : c.weights)
            name += " " + std::to_string(w);
        const Textures textures{texture(LS_RGB), texture(LS_RGBA), texture(LS_RGB)};
        const Textures used(textures.begin(), textures.begin() + std::max<long>(1, long(c.weights.size())));
        expectFormula({additive(used, c.weights, c.previous)}, name);
        expectFormula({modulate({texture(LS_RGB)}), additive(used, c.weights, c.previous)}, name + ", above");
    }
}

TEST_F(MultiTexturingGLTest, TextureWithoutAWeightCountsFull) {
    expectFormula({additive({texture(LS_RGB), texture(LS_RGB)}, {0.3}, 0.0)}, "shorter weights");
}

TEST_F(MultiTexturingGLTest, ManyTexturesInOneEffect) {
    Textures textures;
    for (int i = 0; i < 12; ++i)
        textures.push_back(texture(LS_RGBA));
    expectFormula({additive(textures, std::vector<double>(12, 0.08), 0.0)}, "12 additive");
    expectFormula({decal({textures.begin(), textures.begin() + 3})}, "3 decals");
    expectFormula({modulate({textures.begin(), textures.begin() + 3})}, "3 modulations");
}

TEST_F(MultiTexturingGLTest, StackedEffects) {
    const auto grey = texture(LS_Luminance);
    expectFormula({additive({texture(LS_RGB)}, {1.0}, 0.0), modulate({grey})}, "light map on an image");
    expectFormula({additive({texture(LS_RGB)}, {1.0}, 0.0), decal({texture(LS_RGBA)}), modulate({grey})},
                  "vectors between image and light map");
    expectFormula({modulate({grey}), interpolated(grey, nullptr, texture(LS_RGB))}, "spot over light");
    expectFormula({additive({texture(LS_RGB)}, {1.0}, 0.0), interpolated(texture(LS_RGBA), nullptr, grey)},
                  "interpolation over an image");
    expectFormula({decal({texture(LS_RGBA)}), additive({texture(LS_RGB)}, {0.5}, 0.5)}, "half and half");
    expectFormula(
        {decal({texture(LS_RGB)}), decal({texture(LS_RGBA), texture(LS_RGB)}, 0.3), modulate({grey})},
        "translucent images below the light");
}

TEST_F(MultiTexturingGLTest, RandomStacksOfEffectsOnColouredShapes) {
    std::uniform_real_distribution<double> weight(0.0, 1.2), shade(0.3, 1.0);
    const LayerSequence sequences[] = {LS_RGB, LS_RGBA, LS_Luminance, LS_LuminanceAlpha};
    const auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
    for (int round = 0; round < 12; ++round) {
        std::vector<Case> effects;
        for (int n = 1 + pick(3); n > 0; --n) {
            const auto any = [&] { return texture(sequences[pick(4)]); };
            switch (pick(4)) {
            case 0:
                effects.push_back(additive({any(), any()}, {weight(random), weight(random)}, weight(random)));
                break;
            case 1:
                effects.push_back(decal({any()}, std::min(weight(random), 1.0)));
                break;
            case 2:
                effects.push_back(modulate({any()}));
                break;
            default:
                effects.push_back(interpolated(any(), pick(2) ? any() : nullptr, any()));
                break;
            }
        }
        const Color color(shade(random), shade(random), shade(random));
        const Rgb lit{color[0], color[1], color[2]};
        expectFormula(
            effects, {new ImmediateQuad(-1, 1, 0, color)}, [&](int, int) { return lit; },
            "round " + std::to_string(round));
    }
}

TEST_F(MultiTexturingGLTest, LaterPassesTouchOnlyWhatIsVisible) {
    const Color nearColor(1.0, 0.5, 0.25), farColor(0.25, 0.75, 1.0);
    const auto lit = [&](int x, int) -> Rgb {
        if (x >= 56) return {-1, -1, -1};
        const Color & c = x >= 32 ? nearColor : farColor;
        return {c[0], c[1], c[2]};
    };
    using NewQuad = std::function<SO<Shape>(double, double, double, const Color &)>;
    const NewQuad immediate = [](double l, double r, double z, const Color & c) -> SO<Shape> {
        return new ImmediateQuad(l, r, z, c);
    };
    const NewQuad buffers = [this](double l, double r, double z, const Color & c) {
        return newBufferQuad(engine.get(), l, r, z, c);
    };
    for (const auto & [name, newQuad] : {std::pair<std::string, NewQuad>{"immediate", immediate},
                                         {"display lists", newPolygonQuad},
                                         {"buffers", buffers}}) {
        const SO<Shape> front = newQuad(0.0, 0.75, -0.3, nearColor),
                        back = newQuad(-1.0, 0.75, 0.4, farColor);
        const std::vector<Case> effects{additive({texture(LS_RGB), texture(LS_RGB)}, {0.8, 0.6}, 0.0),
                                        decal({texture(LS_RGBA)}), modulate({texture(LS_Luminance)})};
        expectFormula(effects, {front, back}, lit, name + ", near one first");
        expectFormula(effects, {back, front}, lit, name + ", far one first");
    }
}

TEST_F(MultiTexturingGLTest, SlantingSurfacesGiveTheSameInAnyNumberOfPasses) {
    root->append(new Camera(new LookAt({0.3, 1.0, -2.5}, {0.0, 0.0, 0.3}), new Perspective(50.0, 0.1, 50.0)));
    root->append(new TexGenGL());
    root->append(decal({texture(LS_RGBA)}).effect.get());
    root->append(additive({texture(LS_RGB), texture(LS_RGB)}, {0.9, 0.7}, 0.0).effect.get());
    std::uniform_real_distribution<double> place(-1.0, 1.0);
    auto * vertices = new Array<Vector3Base<double>>;
    auto * colors = new Array<Color>;
    for (int i = 0; i < 300; ++i) {
        vertices->append({place(random), place(random), place(random)});
        colors->append(Color(0.5 + 0.5 * place(random), 0.6, 0.7));
    }
    SO<PolygonSet> triangles = new PolygonSet(PolygonSet::PT_Triangles, SO<PolygonSet::Vertices>(vertices));
    triangles->setColorIterator(SO<PolygonSet::Colors>(colors));
    root->append(triangles.get());
    const SO<Image> all = draw();
    for (const unsigned units : {1U, 2U}) {
        EngineGL::setMaxTextureUnitsLimit(units);
        EXPECT_LE(largestDifference(all, draw()), tolerance) << units;
    }
}

TEST_F(MultiTexturingGLTest, EffectsBelowAnOpaqueOneCostNothing) {
    root->append(new TexGenGL());
    root->append(additive({texture(LS_RGB)}, {1.0}, 0.0).effect.get());
    root->append(decal({texture(LS_RGBA)}).effect.get());
    root->append(new ImmediateQuad(-1, 1, 0, Color::white));
    EngineGL::setMaxTextureUnitsLimit(1);
    paintings = 0;
    draw();
    EXPECT_EQ(1, paintings);
}

TEST_F(MultiTexturingGLTest, OnePassWhereTheUnitsSuffice) {
    const auto t = texture(LS_RGBA);
    const std::vector<std::vector<Case>> stacks{
        {interpolated(t, t, t)}, {additive({t, t}, {0.4, 0.6}, 0.0), decal({t}), modulate({t})}};
    for (const auto & stack : stacks) {
        root->clear();
        for (auto i = stack.rbegin(); i != stack.rend(); ++i)
            root->append(i->effect.get());
        root->append(new ImmediateQuad(-1, 1, 0, Color::white));
        paintings = 0;
        draw();
        EXPECT_EQ(1, paintings);
    }
}

TEST_F(MultiTexturingGLTest, DisabledEffectsAreLeftOut) {
    Case effect = modulate({newUniformTexture(Color::black)});
    effect.effect->setEnableState(false);
    root->append(effect.effect.get());
    root->append(new ImmediateQuad(-1, 1, 0, Color::white));
    EXPECT_EQ((std::array<int, 4>{255, 255, 255, 255}), pixel(draw(), 10, 10));
}

TEST_F(MultiTexturingGLTest, TexturesPushedOutsidePlayNoPart) {
    SO<SceneThing> inner = new SceneThing(root.get());
    root->prepend(newUniformTexture(Color::black).get());
    for (const Case & c :
         {modulate({newUniformTexture(Color(0.5))}), modulate({newUniformTexture(Color(0.5))})})
        inner->append(c.effect.get());
    inner->append(new TexGenGL());
    inner->append(new ImmediateQuad(-1, 1, 0, Color::white));
    for (const unsigned units : {1U, 0U}) {
        EngineGL::setMaxTextureUnitsLimit(units);
        const std::array<int, 4> p = pixel(draw(), 10, 10);
        EXPECT_EQ(p[0], p[1]);
        EXPECT_NEAR(p[0], 64, tolerance);
    }
}

TEST_F(MultiTexturingGLTest, LockedColoursStayLocked) {
    root->append(ColorBufferGL::newLock(false, false, false, false));
    root->append(additive({texture(LS_RGB), texture(LS_RGB)}, {0.8, 0.6}, 0.5).effect.get());
    root->append(new ImmediateQuad(-1, 1, 0, Color::white));
    EngineGL::setMaxTextureUnitsLimit(1);
    paintings = 0;
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 0}), pixel(draw(), 10, 10));
    EXPECT_EQ(1, paintings);
}

TEST_F(MultiTexturingGLTest, DepthIsTestedAsOutsideWhereItIsNotWritten) {
    SO<SceneThing> first = new SceneThing(root.get());
    first->append(new ImmediateQuad(-1, 0, 0.5, Color::white));
    SO<SceneThing> second = new SceneThing(root.get());
    second->append(new DepthBufferGL(14, false, true, GL_EQUAL, 0.0, 1.0));
    second->append(new TexGenGL());
    const Case effect =
        additive({newUniformTexture(Color(0.5)), newUniformTexture(Color(0.5))}, {0.8, 0.8}, 0.0);
    second->append(effect.effect.get());
    second->append(new ImmediateQuad(-1, 1, 0.5, Color::white));
    for (const unsigned units : {1U, 0U}) {
        EngineGL::setMaxTextureUnitsLimit(units);
        const SO<Image> image = draw();
        EXPECT_NEAR(pixel(image, 10, 10)[0], 204, tolerance);
        EXPECT_EQ(pixel(image, 50, 10)[0], 0);
    }
}

TEST_F(MultiTexturingGLTest, AlphaTestOfTheShapesHoldsInAllPasses) {
    root->append(ColorBufferGL::newAlphaTest(true, GL_EQUAL, 1.0));
    root->append(new TexGenGL());
    const Case effect = decal({texture(LS_RGBA), texture(LS_RGBA)});
    root->append(effect.effect.get());
    root->append(new ImmediateQuad(-1, 0, 0.0, Color(1.0, 1.0, 1.0, 0.5)));
    root->append(new ImmediateQuad(0, 1, 0.0, Color::white));
    for (const unsigned units : {1U, 2U, 0U}) {
        EngineGL::setMaxTextureUnitsLimit(units);
        const SO<Image> image = draw();
        for (int x = 0; x < size; ++x) {
            const Rgb lit = x < 32 ? Rgb{-1, -1, -1} : Rgb{1, 1, 1};
            EXPECT_LE(differenceAt(image, {effect}, lit, x, 17), tolerance) << units << " units, " << x;
        }
    }
}

TEST_F(MultiTexturingGLTest, MissingPartsOfAnInterpolationAreReported) {
    const SO<TextureGL> t = newUniformTexture(Color::black);
    root->append(
        new InterpolatedMultiTexturingEffectGL(nullptr, t.get(), t.get(), nullptr, nullptr, nullptr, false));
    EXPECT_EQ(1U, reports.count(0, L"interpolator", L"no interpolator"));
    root->append(
        new InterpolatedMultiTexturingEffectGL(t.get(), t.get(), nullptr, nullptr, nullptr, nullptr, false));
    EXPECT_EQ(1U, reports.count(0, L"second", L"no second texture"));
    reports.clear();
    root->append(new ImmediateQuad(-1, 1, 0, Color::white));
    EXPECT_EQ(255, pixel(draw(), 10, 10)[0]);
}

namespace {

/// Brings stages of its own: the dot product of the texture and a constant.
class DotEffect : public TexturingEffectGL {
    NBX_CLASS(DotEffect, TexturingEffectGL)
public:
    explicit DotEffect(SO<TextureGL> texture) : texture(texture) {}
    SO<TextureGL> texture;
};
NBX_CLASS_IMPL(DotEffect, TexturingEffectGL)

class DotShader : public TexturingEffectShaderGL {
public:
    ID target() const override { return DotEffect::ClassNameNBX(); }
    void updatePasses(EngineGL *, TexturingEffectGL * effect, PassesSetup & passes) override {
        if (passes.surfaceContainsColorInCurrentPass() || passes.freeUnitsInCurrentPass() < 1)
            passes.createNextPass();
        SO<TexEnvCombineGL> stage = new TexEnvCombineGL();
        stage->setColor(GL_DOT3_RGB, {GL_TEXTURE, GL_SRC_COLOR}, {GL_CONSTANT, GL_SRC_COLOR});
        stage->setEnvironmentColor(Color(0.5, 1.0, 0.5));
        passes.appendStage({static_cast<DotEffect *>(effect)->texture, nullptr}, stage.get());
    }
};
const bool dotRegistered = (EngineGL::registerHandler(new DotShader), true);

Case dot(const SO<TextureGL> & texture) {
    return {new DotEffect(texture), [=](Rgb picture, const Rgb &, int x, int y) {
                const double light = cut(4.0 * 0.5 * (texelOf(texture, x, y).rgb[1] - 0.5));
                for (double & c : picture)
                    c *= light;
                return picture;
            }};
}

} // namespace

TEST_F(MultiTexturingGLTest, EffectsWithStagesOfTheirOwnCombineWithTheOthers) {
    const SO<TextureGL> normals = texture(LS_RGB), image = texture(LS_RGB), grey = texture(LS_Luminance);
    expectFormula({dot(normals)}, "alone");
    expectFormula({dot(normals), modulate({grey})}, "at the bottom");
    expectFormula({additive({image}, {1.0}, 0.0), dot(normals)}, "at the top");
    expectFormula({additive({image}, {1.0}, 0.0), dot(normals), modulate({grey}), decal({texture(LS_RGBA)})},
                  "in between");
}
