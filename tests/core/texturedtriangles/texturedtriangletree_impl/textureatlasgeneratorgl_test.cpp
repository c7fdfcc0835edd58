#include <algorithm>
#include <cmath>
#include <numbers>

#include <nbx/image/memoryimage.h>
#include <nbx/math/algorithmimpl.h>

#include "core/texturedtriangles/texturedtriangletree_impl/textureatlasgenerator.h"
#include "support/glfixture.h"
#include "trianglelists.h"

namespace {

using ZMT::CORE::TextureAtlasGenerator;
using V = NBX::Vector3Base<double>;
using Textures = NBX::NonPersistentArray<NBX::SO<NBX::ImageTexture2DGL>>;

constexpr int s_drawnBorder = 8;
constexpr int s_atlasSize = 256;

/// One slow wave in each direction, the same at opposite edges.
double wave(double s, double t, int layer) {
    const double turn = 2.0 * std::numbers::pi;
    return 0.5 + 0.2 * std::sin(turn * s + layer) + 0.2 * std::cos(turn * t - layer);
}

NBX::SO<NBX::ImageTexture2DGL> waves(NBX::LayerSequence sequence = NBX::LS_RGB) {
    const NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(256, 256, sequence));
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x)
            image->setColor(x, y,
                            NBX::Color(float(wave((x + 0.5) / 256, (y + 0.5) / 256, 0)),
                                       float(wave((x + 0.5) / 256, (y + 0.5) / 256, 1)),
                                       float(wave((x + 0.5) / 256, (y + 0.5) / 256, 2)), 0.5F));
    return new NBX::ImageTexture2DGL(image);
}

NBX::SO<NBX::ImageTexture2DGL> plain(const NBX::Color & color) {
    const NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(4, 4, NBX::LS_RGB));
    for (int i = 0; i < 16; ++i)
        image->setColor(i % 4, i / 4, color);
    return new NBX::ImageTexture2DGL(image);
}

/// A colour that tells which one it is.
NBX::Color colorOf(unsigned i) {
    return NBX::Color(float(i % 5 + 1) / 5.0F, float(i / 5 % 5 + 1) / 5.0F, float(i / 25 % 5 + 1) / 5.0F);
}

NBX::SO<Textures> texturesOf(std::vector<NBX::SO<NBX::ImageTexture2DGL>> textures) {
    return new Textures(std::move(textures));
}

class TextureAtlasGeneratorGLTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        canvas->remove(root.get());
    }

    TextureAtlasGenerator::TextureMapping create(const TriangleList & list, const TriangleList & texCoords,
                                                 const std::vector<int> & numbers, const Textures & textures,
                                                 double unitsPerTexel) {
        return TextureAtlasGenerator::create(newVertices(list).get(), newVertices(texCoords).get(),
                                             newNumbers(numbers).get(), &textures, unitsPerTexel,
                                             s_drawnBorder, s_atlasSize, canvas.get());
    }
};

/// Coordinates of a source texture for triangles in space, at `scale` to a world unit.
TriangleList textured(const TriangleList & list, double scale) {
    TriangleList texCoords;
    for (const V & p : list)
        texCoords.emplace_back((p.x + 0.3 * p.z) * scale, (p.y - 0.2 * p.z + 0.1 * p.x) * scale, 0.0);
    return texCoords;
}

/// A triangle of the atlas in texels, in x and z, grown by `margin` or shrunk where that is below 0.
struct Texels {
    std::array<V, 3> corners;
    NBX::Matrix4x4Base<double> toSource;

    Texels(const NBX::Iterator<V> & atlas, const TriangleList & texCoords, int triangle) {
        std::array<V, 3> source;
        for (unsigned i = 0; i < 3; ++i) {
            const unsigned at = static_cast<unsigned>(triangle) * 3 + i;
            corners[i] = V(atlas.get(at).x, 0, atlas.get(at).y) * s_atlasSize;
            source[i] = texCoords[at];
        }
        toSource = NBX::AlgorithmImpl::computeVertexTf(corners, source);
        NBX::AlgorithmImpl::orientLoop(corners);
    }
    /// Below 0 inside.
    double distance(const V & p) const {
        double farthest = -1e9;
        for (unsigned i = 0; i < 3; ++i)
            farthest = std::max(
                farthest,
                (p - corners[i]).dot(NBX::AlgorithmImpl::getEdgeNormal(corners[i], corners[(i + 1) % 3])));
        return farthest;
    }
};

TEST_F(TextureAtlasGeneratorGLTest, TexelsEqualTheSourceSeenThroughTheMapping) {
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(9, 0, 1), V(0, 6, 0));
    appendQuad(list, V(20, 0, 0), V(0, 0, 7), V(0, 5, 0));
    appendQuad(list, V(0, 30, 0), V(0, 0, 6), V(8, 0, 0));
    for (const V & p : {V(50, 0, 0), V(58, 1, 0), V(53, 7, 2)})
        list.push_back(p);
    const TriangleList texCoords = textured(list, 0.09);
    const auto textures = texturesOf({waves()});
    const auto mapping = create(list, texCoords, std::vector<int>(7, 0), *textures, 0.1);
    ASSERT_TRUE(mapping.image && mapping.texCoords);
    EXPECT_EQ(mapping.image->width(), s_atlasSize);
    EXPECT_EQ(mapping.image->height(), s_atlasSize);
    EXPECT_EQ(mapping.image->layerSequence(), NBX::LS_RGB);
    unsigned seen = 0;
    for (int triangle = 0; triangle < 7; ++triangle) {
        const Texels texels(*mapping.texCoords, texCoords, triangle);
        for (int y = 0; y < s_atlasSize; ++y)
            for (int x = 0; x < s_atlasSize; ++x) {
                const V p(x + 0.5, 0, y + 0.5);
                if (texels.distance(p) > 0.0) continue;
                ++seen;
                const V source = texels.toSource * p;
                for (int layer = 0; layer < 3; ++layer)
                    ASSERT_NEAR(*mapping.image->pixelComponentsU8(x, y, layer),
                                std::lround(255.0 * wave(source.x, source.y, layer)), 2)
                        << triangle << ": " << x << ", " << y;
            }
    }
    EXPECT_GT(seen, 10000U);
}

/// Noise of all sizes, the smaller ones weaker, as photographs have it.
NBX::SO<NBX::MemoryImage> photograph() {
    const NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(256, 256, NBX::LS_RGB));
    std::mt19937 random(12);
    std::vector<double> noise(256 * 256, 128.0);
    for (int cell = 128; cell >= 1; cell /= 2) {
        const int cells = 256 / cell;
        std::vector<double> heights(std::size_t(cells * cells));
        for (double & height : heights)
            height = (random() % 1001 / 500.0 - 1.0) * 60.0 * std::pow(cell / 128.0, 0.4);
        for (int i = 0; i < 256 * 256; ++i)
            noise[std::size_t(i)] += heights[std::size_t(i / 256 / cell * cells + i % 256 / cell)];
    }
    for (int i = 0; i < 256 * 256; ++i)
        for (int layer = 0; layer < 3; ++layer)
            *image->pixelComponentsU8(i % 256, i / 256, layer) =
                static_cast<unsigned char>(std::clamp(noise[std::size_t(i)], 0.0, 255.0));
    return image;
}

TEST_F(TextureAtlasGeneratorGLTest, OtherTexturesDifferLittleFromFilteredOnesInTheMean) {
    const NBX::SO<NBX::MemoryImage> image = photograph();
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(9, 0, 0), V(0, 6, 0));
    for (const double scale : {0.05, 0.09, 0.15}) {
        const TriangleList texCoords = textured(list, scale);
        const auto textures = texturesOf({new NBX::ImageTexture2DGL(image)});
        const auto mapping = create(list, texCoords, {0, 0}, *textures, 0.1);
        ASSERT_TRUE(mapping.image);
        double sum = 0.0;
        unsigned seen = 0;
        for (int triangle = 0; triangle < 2; ++triangle) {
            const Texels texels(*mapping.texCoords, texCoords, triangle);
            for (int y = 0; y < s_atlasSize; ++y)
                for (int x = 0; x < s_atlasSize; ++x) {
                    if (texels.distance(V(x + 0.5, 0, y + 0.5)) > -1.0) continue;
                    double mean = 0.0;
                    for (int k = 0; k < 256; ++k) {
                        const V at = texels.toSource * V(x + (k % 16 + 0.5) / 16, 0, y + (k / 16 + 0.5) / 16);
                        const auto texel = [](double c) { return int(std::floor(c * 256)) & 255; };
                        mean += *image->pixelComponentsU8(texel(at.x), texel(at.y), 0) / 256.0;
                    }
                    sum += std::abs(*mapping.image->pixelComponentsU8(x, y, 0) - mean);
                    ++seen;
                }
        }
        EXPECT_LE(sum / seen, 4.0) << scale;
    }
}

TEST_F(TextureAtlasGeneratorGLTest, TheBorderContinuesTheTexture) {
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(9, 0, 0), V(0, 6, 0));
    const TriangleList texCoords = textured(list, 0.09);
    const auto textures = texturesOf({waves()});
    const auto mapping = create(list, texCoords, {0, 0}, *textures, 0.1);
    ASSERT_TRUE(mapping.image);
    const Texels texels(*mapping.texCoords, texCoords, 0);
    NBX::Bounds box;
    for (const V & p : *mapping.texCoords)
        box += V(p.x, p.y, 0.0) * s_atlasSize;
    unsigned outside = 0;
    for (int y = 0; y < s_atlasSize; ++y)
        for (int x = 0; x < s_atlasSize; ++x) {
            const V p(x + 0.5, y + 0.5, 0.0);
            // At the corners there are squares of half the width.
            const bool besideX = p.x < box.getLLF().x || p.x > box.getURB().x;
            const bool besideY = p.y < box.getLLF().y || p.y > box.getURB().y;
            const double width = besideX && besideY ? s_drawnBorder / 2 : s_drawnBorder;
            if (!box.expand(width).containsPoint(p)) {
                if (!box.expand(s_drawnBorder + 1).containsPoint(p)) {
                    EXPECT_EQ(*mapping.image->pixelComponentsU8(x, y, 0), 0) << x << ", " << y;
                }
                continue;
            }
            outside += besideX || besideY;
            const V source = texels.toSource * V(p.x, 0, p.y);
            for (int layer = 0; layer < 3; ++layer)
                ASSERT_NEAR(*mapping.image->pixelComponentsU8(x, y, layer),
                            std::lround(255.0 * wave(source.x, source.y, layer)), 2)
                    << x << ", " << y;
        }
    EXPECT_GT(outside, 2000U);
}

TEST_F(TextureAtlasGeneratorGLTest, NoTexelOfAPatchLiesInTheBorderOfAnother) {
    TriangleList list;
    GroupList patches;
    std::vector<NBX::SO<NBX::ImageTexture2DGL>> colors;
    std::mt19937 random(4);
    for (unsigned i = 0; i < 25; ++i) {
        const double width = 1.0 + random() % 30 / 10.0;
        appendQuad(list, V(100.0 * i, 0, 0), V(width, 0, 0), V(0, 1.0 + random() % 30 / 10.0, 0));
        patches.push_back({int(2 * i), int(2 * i + 1)});
        colors.push_back(plain(colorOf(i)));
    }
    const auto resolutions = NBX::SO<NBX::Array<double>>(new NBX::Array<double>(25, 0.1));
    const auto textures = texturesOf(colors);
    const auto mapping = TextureAtlasGenerator::create(
        newVertices(list).get(), newVertices(textured(list, 1)).get(), newGroups(patches).get(),
        textures.get(), resolutions.get(), s_drawnBorder, s_atlasSize, canvas.get());
    ASSERT_TRUE(mapping.image && mapping.texCoords);
    for (unsigned i = 0; i < 25; ++i) {
        NBX::Bounds box;
        for (unsigned corner = 6 * i; corner < 6 * i + 6; ++corner)
            box += V(mapping.texCoords->get(corner).x, mapping.texCoords->get(corner).y, 0) * s_atlasSize;
        unsigned missing = 0;
        const NBX::Bounds grown = box.expand(s_drawnBorder - 0.5);
        for (int y = int(grown.getLLF().y); y < grown.getURB().y; ++y)
            for (int x = int(grown.getLLF().x); x < grown.getURB().x; ++x) {
                const V p(x + 0.5, y + 0.5, 0);
                if (!grown.containsPoint(p)) continue;
                if (*mapping.image->pixelComponentsU8(x, y) == 0) {
                    ++missing; // at the corners
                    EXPECT_FALSE(box.expand(s_drawnBorder / 2 - 0.5).containsPoint(p));
                    continue;
                }
                for (int layer = 0; layer < 3; ++layer)
                    ASSERT_NEAR(*mapping.image->pixelComponentsU8(x, y, layer),
                                255.0F * colorOf(i)[unsigned(layer)], 1.0)
                        << i << ": " << x << ", " << y;
            }
        EXPECT_LE(missing, 4U * 8U * 8U);
    }
}

TEST_F(TextureAtlasGeneratorGLTest, TrianglesOfOnePatchKeepTheirOwnTextures) {
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(10, 0, 0), V(0, 10, 0));
    const auto textures = texturesOf({plain(NBX::Color::red), plain(NBX::Color::green)});
    const auto mapping = create(list, textured(list, 0.1), {0, 1}, *textures, 0.1);
    ASSERT_TRUE(mapping.image);
    for (const auto & [triangle, layer] : {std::pair(0, 0), {1, 1}}) {
        const Texels texels(*mapping.texCoords, list, triangle);
        for (int y = 0; y < s_atlasSize; ++y)
            for (int x = 0; x < s_atlasSize; ++x)
                if (texels.distance(V(x + 0.5, 0, y + 0.5)) < -0.01) {
                    ASSERT_EQ(*mapping.image->pixelComponentsU8(x, y, layer), 255) << x << ", " << y;
                }
    }
}

TEST_F(TextureAtlasGeneratorGLTest, TheHighestOfTwoTrianglesIsSeen) {
    const auto textures = texturesOf({plain(NBX::Color::red), plain(NBX::Color::green)});
    for (const double height : {0.5, -0.5, 1e4})
        for (const bool isTurned : {false, true}) {
            TriangleList atlas = {V(0.2, 0.2, 0),      V(0.8, 0.2, 0),      V(0.2, 0.8, 0),
                                  V(0.2, 0.2, height), V(0.8, 0.2, height), V(0.2, 0.8, height)};
            if (isTurned) std::swap(atlas[4], atlas[5]);
            const NBX::SO<NBX::Image> image = TextureAtlasGenerator::renderTextureAtlas(
                newVertices(atlas).get(), newVertices(atlas).get(), newNumbers({0, 1}).get(), textures.get(),
                newVertices(atlas).get(), 4, canvas.get());
            ASSERT_TRUE(image);
            EXPECT_EQ(pixel(image, 20, 20)[height > 0 ? 1 : 0], 255) << height;
            EXPECT_EQ(pixel(image, 20, 20)[height > 0 ? 0 : 1], 0) << height;
        }
}

TEST_F(TextureAtlasGeneratorGLTest, WithPatchesTheirTrianglesAloneAreDrawn) {
    const TriangleList atlas = {V(0.1, 0.1, 0), V(0.4, 0.1, 0), V(0.1, 0.4, 0),
                                V(0.6, 0.6, 0), V(0.9, 0.6, 0), V(0.6, 0.9, 0)};
    const auto textures = texturesOf({plain(NBX::Color::red)});
    const NBX::SO<NBX::Image> image = TextureAtlasGenerator::renderTextureAtlas(
        newVertices(atlas).get(), newVertices(atlas).get(), newNumbers({0, 0}).get(), textures.get(),
        newVertices(atlas).get(), newGroups({{1, 9, -1}}).get(), 4, canvas.get());
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(image, 42, 42)[0], 255);
    EXPECT_EQ(pixel(image, 10, 10)[0], 0);
}

TEST_F(TextureAtlasGeneratorGLTest, WithoutATextureATriangleIsWhite) {
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(10, 0, 0), V(0, 10, 0));
    const auto textures = texturesOf({nullptr});
    for (const int number : {-1, -7, 0, 1}) {
        const auto mapping = create(list, textured(list, 0.1), {number, number}, *textures, 0.1);
        ASSERT_TRUE(mapping.image) << number;
        EXPECT_EQ(pixel(mapping.image, 50, 50), (std::array<int, 4>{255, 255, 255, 255})) << number;
    }
}

TEST_F(TextureAtlasGeneratorGLTest, TransparentSourcesGiveATransparentAtlas) {
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(10, 0, 0), V(0, 10, 0));
    const auto textures = texturesOf({waves(NBX::LS_RGBA)});
    const auto mapping = create(list, textured(list, 0.1), {0, 0}, *textures, 0.1);
    ASSERT_TRUE(mapping.image);
    EXPECT_EQ(mapping.image->layerSequence(), NBX::LS_RGBA);
    EXPECT_NEAR(pixel(mapping.image, 50, 50)[3], 128, 1);
    EXPECT_EQ(pixel(mapping.image, 250, 250)[3], 0);
}

TEST_F(TextureAtlasGeneratorGLTest, DegenerateTrianglesAreNotDrawn) {
    TriangleList list = {V(0, 0, 0), V(1, 0, 0), V(2, 0, 0)};
    appendQuad(list, V(0, 0, 0), V(10, 0, 0), V(0, 10, 0));
    const auto textures = texturesOf({plain(NBX::Color::red), plain(NBX::Color::green)});
    const auto mapping = create(list, textured(list, 0.1), {0, 1, 1}, *textures, 0.1);
    ASSERT_TRUE(mapping.image);
    for (int y = 0; y < s_atlasSize; ++y)
        for (int x = 0; x < s_atlasSize; ++x)
            ASSERT_EQ(*mapping.image->pixelComponentsU8(x, y, 0), 0);
    EXPECT_EQ(mapping.texCoords->get(1), V());
}

TEST_F(TextureAtlasGeneratorGLTest, WhatDoesNotFitGivesAnEmptyMapping) {
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(1000, 0, 0), V(0, 1000, 0));
    const auto textures = texturesOf({waves()});
    const auto mapping = create(list, textured(list, 0.1), {0, 0}, *textures, 0.1);
    EXPECT_FALSE(mapping.image);
    EXPECT_FALSE(mapping.texCoords);
}

TEST_F(TextureAtlasGeneratorGLTest, MissingPartsAreReported) {
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(10, 0, 0), V(0, 10, 0));
    const auto vertices = newVertices(list);
    const auto numbers = newNumbers({0, 0});
    const auto groups = newGroups({{0, 1}});
    const auto textures = texturesOf({waves()});
    const NBX::SO<NBX::Array<double>> resolutions(new NBX::Array<double>(1, 0.1));
    EXPECT_FALSE(TextureAtlasGenerator::renderTextureAtlas(
        vertices.get(), nullptr, numbers.get(), textures.get(), vertices.get(), s_drawnBorder, canvas.get()));
    EXPECT_EQ(reports.count(2, L"false", L"no texture coordinates"), 1U);
    EXPECT_FALSE(TextureAtlasGenerator::create(
                     nullptr, nullptr, static_cast<NBX::Iterator<NBX::SO<NBX::Iterator<int>>> *>(nullptr),
                     nullptr, nullptr, s_drawnBorder, s_atlasSize, nullptr)
                     .image);
    for (const wchar_t * condition :
         {L"triangles", L"texCoords", L"patches", L"textures", L"patchResolutions"})
        EXPECT_EQ(reports.count(0, condition, L"no iterator"), 1U) << reports;
    EXPECT_EQ(reports.count(0, L"canvas", L"no canvas"), 1U);
    EXPECT_FALSE(TextureAtlasGenerator::create(vertices.get(), vertices.get(), numbers.get(), textures.get(),
                                               0.1, s_drawnBorder, s_atlasSize, nullptr)
                     .image);
    EXPECT_EQ(reports.count(0, L"canvas", L"no canvas"), 2U);
    EXPECT_EQ(reports.size(), 8U) << reports;
    reports.clear();
    EXPECT_TRUE(TextureAtlasGenerator::create(vertices.get(), vertices.get(), groups.get(), textures.get(),
                                              resolutions.get(), s_drawnBorder, s_atlasSize, canvas.get())
                    .image);
}

TEST_F(TextureAtlasGeneratorGLTest, TheCanvasKeepsNothingOfTheScene) {
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(10, 0, 0), V(0, 10, 0));
    const auto textures = texturesOf({waves()});
    EXPECT_TRUE(create(list, textured(list, 0.1), {0, 0}, *textures, 0.1).image);
    EXPECT_EQ(canvas->rootNodes(), 0U);
    EXPECT_EQ(canvas->getWidth(), unsigned(s_atlasSize));
}

TEST_F(TextureAtlasGeneratorGLTest, PatchesHaveTheirOwnResolutions) {
    TriangleList list;
    appendQuad(list, V(0, 0, 0), V(8, 0, 0), V(0, 8, 0));
    appendQuad(list, V(50, 0, 0), V(8, 0, 0), V(0, 8, 0));
    const auto textures = texturesOf({plain(NBX::Color::red), plain(NBX::Color::green)});
    const NBX::SO<NBX::Array<double>> resolutions(new NBX::Array<double>(std::vector<double>{0.1, 0.2}));
    const auto mapping = TextureAtlasGenerator::create(
        newVertices(list).get(), newVertices(textured(list, 0.1)).get(), newGroups({{0, 1}, {2, 3}}).get(),
        textures.get(), resolutions.get(), s_drawnBorder, s_atlasSize, canvas.get());
    ASSERT_TRUE(mapping.texCoords);
    const auto edge = [&](unsigned first) {
        const V d = mapping.texCoords->get(first) - mapping.texCoords->get(first + 1);
        return std::hypot(d.x, d.y);
    };
    EXPECT_NEAR(edge(0), 2.0 * edge(6), 1e-12);
    const auto drawnWith = [&](unsigned first) {
        const V middle =
            (mapping.texCoords->get(first) + mapping.texCoords->get(first + 2)) * (0.5 * s_atlasSize);
        return pixel(mapping.image, int(middle.x), int(middle.y));
    };
    EXPECT_EQ(drawnWith(0)[0], 255);
    EXPECT_EQ(drawnWith(6)[1], 255);
}

} // namespace
