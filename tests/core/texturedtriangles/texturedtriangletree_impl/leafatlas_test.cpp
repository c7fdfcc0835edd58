#include "core/texturedtriangles/texturedtriangletree_impl/leafatlas.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>
#include <nbx/container/sequence/nonpersistentarray.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/math/color.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "citysquares.h"
#include "core/texturedtriangles/texturedtriangletree_impl/textureatlasgenerator.h"
#include "core/texturedtriangles/texturedtriangletree_impl/texturesizecalculator.h"

namespace {

using namespace ZMT::CORE;
using CitySquares::V;
using NBX::Image;
using NBX::SO;
using LeafIDs = NBX::NonPersistentArray<TriangleContainer::TriangleID>;

SO<AtlasTreeGenerator::Triangles> allInLeaf(const TriangleContainer & container) {
    const SO<LeafIDs> all(new LeafIDs());
    for (unsigned mesh = 0; mesh < container.numberOfMeshes(); ++mesh)
        for (unsigned i = 0; i < container.numberOfTriangles(mesh); ++i)
            all->append({int(mesh), int(i)});
    return SO<AtlasTreeGenerator::Triangles>(all.get());
}

AtlasResolution resolution(int atlasSize) {
    return {CitySquares::distance, CitySquares::fieldOfView, CitySquares::screenSize, CitySquares::quality,
            atlasSize};
}

SO<Image> drawn(const SO<TriangleContainer> & container, int atlasSize) {
    SourceTextures textures(*container);
    return drawLeafAtlas(allInLeaf(*container), container, textures, resolution(atlasSize), nullptr);
}

TEST(LeafAtlas, WhatFindsNoRoomStaysAsItIs) {
    const SO<TriangleContainer> area = CitySquares::container({0, 0, 0, 0, 0}, 5),
                                places = CitySquares::container({0, 1}, 2);
    EXPECT_FALSE(drawn(area, 64)) << "more area than the atlas";
    EXPECT_FALSE(drawn(places, 64)) << "borders leave no room for two textures";
    for (const SO<TriangleContainer> & container : {area, places})
        EXPECT_EQ(V(1.0, 0.0, 0.0), container->triangle({0, 0}).texCoords[1]);
    EXPECT_TRUE(drawn(places, 96));
}

/// A single triangle has its place whatever its area.
TEST(LeafAtlas, OneTriangleAlwaysFindsRoom) {
    const SO<TriangleContainer> container(new TriangleContainer(
        TriangleMeshes::meshesOf({{CitySquares::textureOf(CitySquares::ramp(1)),
                                   TriangleMeshes::setOf({{0, 0, 0}, {900, 0, 0}, {0, 0, 900}},
                                                         {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}})}})));
    ASSERT_TRUE(drawn(container, 64));
    const TriangleContainer::Triangle triangle = container->triangle({0, 0});
    EXPECT_NEAR(65.0 / 64.0 * 8.0 / 3600.0 / 1.0, triangle.texCoords[0].x, 0.1);
    EXPECT_LT(triangle.texCoords[1].x, 65.0 / 64.0);
    EXPECT_GT(triangle.texCoords[1].x, 0.9);
}

/// Blue tells whose texel it is.
TEST(LeafAtlas, NoTexelOfATextureLiesInTheBorderOfAnother) {
    const SO<TriangleContainer> container = CitySquares::container({1, 2, 3, 4, 5, 6}, 3);
    constexpr int side = 160;
    const SO<Image> atlas = drawn(container, side);
    ASSERT_TRUE(atlas);
    std::set<int> owners;
    for (unsigned mesh = 1; mesh < container->numberOfMeshes(); ++mesh) {
        NBX::Bounds box;
        for (int i = 0; i < 2; ++i)
            for (const V & coordinates : container->triangle({int(mesh), i}).texCoords)
                box += coordinates * double(side);
        const int own = atlas->pixelComponentsU8(int(box.center().x), int(box.center().y), 2)[0];
        owners.insert(own);
        EXPECT_NEAR(32.0, box.diagonal().x, 0.5) << "a quarter of a unit for a texel";
        const double border = TextureSizeCalculator::BORDER - 1.0;
        for (double y = box.getLLF().y - border; y < box.getURB().y + border; y += 1.0)
            for (double x = box.getLLF().x - border; x < box.getURB().x + border; x += 1.0) {
                if (x >= side || y >= side) continue; // cut off by the factor
                EXPECT_EQ(own, atlas->pixelComponentsU8(int(x), int(y), 2)[0])
                    << mesh << ": " << x << ' ' << y;
            }
    }
    EXPECT_EQ(6U, owners.size());
}

TEST(LeafAtlas, TexturesKeepTheirAlpha) {
    const SO<TriangleContainer> container = CitySquares::container({0}, 1, [](unsigned) {
        const SO<Image> glass = CitySquares::ramp(0, NBX::LS_RGBA);
        for (int y = 0; y < glass->height(); ++y)
            for (int x = 0; x < glass->width(); ++x)
                glass->pixelComponentsU8(x, y, 3)[0] = 90;
        return glass;
    });
    const SO<Image> atlas = drawn(container, 64);
    EXPECT_EQ(90, atlas->pixelComponentsU8(24, 24, 3)[0]);
    EXPECT_EQ(90, atlas->pixelComponentsU8(60, 60, 3)[0]) << "where nothing lies, as well";
}

/// So that coarse levels are no darker than the textures.
TEST(LeafAtlas, WhereNothingLiesIsTheColourOfWhatIsAround) {
    constexpr int side = 160;
    const SO<Image> atlas = drawn(CitySquares::container({4, 6}, 2), side);
    const int least = CitySquares::ramp(4)->pixelComponentsU8(0, 0, 2)[0],
              most = CitySquares::ramp(6)->pixelComponentsU8(0, 0, 2)[0];
    ASSERT_GT(least, 0);
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            EXPECT_GE(atlas->pixelComponentsU8(x, y, 2)[0], least) << x << ' ' << y;
            EXPECT_LE(atlas->pixelComponentsU8(x, y, 2)[0], most) << x << ' ' << y;
            EXPECT_EQ(255, atlas->pixelComponentsU8(x, y, 3)[0]) << x << ' ' << y;
        }
}

/// Tells how many there are at once.
class CountedPixels : public NBX::MemoryImage {
    NBX_TEMPLATE_CLASS(CountedPixels, NBX::MemoryImage)
public:
    explicit CountedPixels(const Image & picture)
        : MemoryImage(picture.width(), picture.height(), picture.layerSequence()) {
        copy(&picture);
        s_most = std::max(s_most, ++s_alive);
    }
    ~CountedPixels() override { --s_alive; }

    static inline int s_alive = 0, s_most = 0;
};

/// A plain picture that has other pixels each time, and from the second time on may be narrower, or lower.
class PictureInAFile : public Image {
    NBX_TEMPLATE_CLASS(PictureInAFile, Image)
public:
    PictureInAFile(int blue, bool shrinks)
        : Image(NBX::LS_RGB, UInt8), blue_(blue), shrinks_(shrinks), lines_(newPicture(s_side, s_side)) {}

    int width() const override { return lines_->width(); }
    int height() const override { return lines_->height(); }
    using Image::lineComponents;
    const void * lineComponents(int y) const override { return lines_->lineComponents(y); }
    SO<Image> uncompressed(bool) override {
        const bool isSmaller = shrinks_ && decodings_++ > 0;
        const bool isNarrower = blue_ % 8 == 0;
        return new CountedPixels(
            *newPicture(isSmaller && isNarrower ? 3 : s_side, isSmaller && !isNarrower ? 3 : s_side));
    }

private:
    static constexpr int s_side = CitySquares::textureSize;

    SO<Image> newPicture(int width, int height) const {
        const SO<Image> image(new NBX::MemoryImage(width, height, NBX::LS_RGB));
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                image->pixelComponentsU8(x, y, 2)[0] = static_cast<unsigned char>(blue_);
        return image;
    }

    int blue_, decodings_ = 0;
    bool shrinks_;
    SO<Image> lines_;
};

constexpr unsigned s_textures = 60;

/// Two squares of each of `s_textures` textures.
SO<TriangleContainer> squaresInPairs() {
    std::vector<unsigned> squares;
    for (unsigned i = 0; i < 2 * s_textures; ++i)
        squares.push_back(i % s_textures);
    return CitySquares::container(squares, 10, [](unsigned number) {
        return SO<Image>(new PictureInAFile(4 * int(number) + 8, false));
    });
}

/// One leaf has the first squares, the other one the second ones.
std::vector<SO<AtlasTreeGenerator::Triangles>> twoLeaves() {
    std::vector<SO<AtlasTreeGenerator::Triangles>> leaves;
    for (const int first : {0, 2}) {
        const SO<LeafIDs> ids(new LeafIDs());
        for (unsigned mesh = 0; mesh < s_textures; ++mesh)
            for (const int triangle : {first, first + 1})
                ids->append({int(mesh), triangle});
        leaves.emplace_back(ids.get());
    }
    return leaves;
}

TEST(LeafAtlas, NeighbouringLeavesDecodeEachTextureOnce) {
    constexpr int side = 512;
    const auto goOn = [] { return true; };
    std::vector<SO<Image>> pictures[2];
    std::vector<V> coordinates[2];
    for (const unsigned together : {0U, 1U}) {
        const SO<TriangleContainer> container = squaresInPairs();
        SourceTextures textures(*container);
        CountedPixels::s_most = CountedPixels::s_alive;
        LeafAtlases atlases(twoLeaves(), container, textures, resolution(side), nullptr, goOn,
                            together ? 2 * 4 * side * side : 2 * 4 * side * side - 1);
        pictures[together].push_back(atlases.next());
        EXPECT_EQ(V(1.0, 0.0, 0.0), container->triangle({0, 2}).texCoords[1]) << "not yet its turn";
        pictures[together].push_back(atlases.next());
        EXPECT_FALSE(atlases.next());
        EXPECT_EQ(together ? s_textures : 2 * s_textures, textures.loads());
        EXPECT_LE(CountedPixels::s_most, int(SourceTextures::s_mostImages));
        for (const auto & leaf : twoLeaves())
            for (const TriangleContainer::TriangleID & id : *leaf)
                for (const V & corner : container->triangle(id).texCoords)
                    coordinates[together].push_back(corner);
    }
    EXPECT_EQ(coordinates[0], coordinates[1]);
    for (unsigned leaf = 0; leaf < 2; ++leaf) {
        ASSERT_TRUE(pictures[0][leaf]);
        ASSERT_TRUE(pictures[1][leaf]);
        for (int y = 0; y < side; ++y)
            ASSERT_EQ(0, std::memcmp(pictures[0][leaf]->lineComponents(y),
                                     pictures[1][leaf]->lineComponents(y), 4 * side))
                << leaf << ": " << y;
        const V inside = coordinates[1][leaf * 6 * s_textures] * double(side) + V(4.0, 4.0, 0.0);
        EXPECT_EQ(8, pictures[1][leaf]->pixelComponentsU8(int(inside.x), int(inside.y), 2)[0]);
    }
}

/// The first texture of the second leaf is kept still, and makes room for the next one while it is drawn.
TEST(LeafAtlas, WhatIsDrawnCountsForTheImagesThatAreDecodedAtOnce) {
    const SO<TriangleContainer> container = squaresInPairs();
    SourceTextures textures(*container);
    const SO<LeafIDs> first(new LeafIDs()), second(new LeafIDs());
    for (int mesh = 0; mesh < int(SourceTextures::s_mostImages); ++mesh)
        first->append({mesh, 0});
    for (const int mesh : {0, int(SourceTextures::s_mostImages)})
        second->append({mesh, 2});
    CountedPixels::s_most = CountedPixels::s_alive;
    LeafAtlases atlases(
        {SO<AtlasTreeGenerator::Triangles>(first.get()), SO<AtlasTreeGenerator::Triangles>(second.get())},
        container, textures, resolution(512), nullptr, [] { return true; }, 0);
    EXPECT_TRUE(atlases.next());
    EXPECT_TRUE(atlases.next());
    EXPECT_EQ(SourceTextures::s_mostImages + 1, textures.loads());
    EXPECT_EQ(int(SourceTextures::s_mostImages), CountedPixels::s_most);
}

/// Where two pictures do not fit, the first one is drawn before the second one is decoded.
TEST(LeafAtlas, WhatIsDrawnCountsForTheBytesThatAreDecodedAtOnce) {
    constexpr std::uint64_t picture = 3 * CitySquares::textureSize * CitySquares::textureSize;
    for (const std::uint64_t most : {2 * picture - 1, 2 * picture}) {
        const SO<TriangleContainer> container = squaresInPairs();
        SourceTextures textures(*container, most);
        CountedPixels::s_most = CountedPixels::s_alive;
        LeafAtlases atlases(twoLeaves(), container, textures, resolution(512), nullptr, [] { return true; });
        EXPECT_TRUE(atlases.next());
        EXPECT_EQ(s_textures, textures.loads());
        EXPECT_EQ(int(most / picture), CountedPixels::s_most);
    }
}

/// One that repeats, and one that does not, with others between them.
TEST(LeafAtlas, ATextureOfTwoWrapModesIsDecodedOnce) {
    const SO<Image> file(new PictureInAFile(8, false)), other(new PictureInAFile(16, false));
    std::vector<TriangleMeshes::Mesh> meshes;
    for (const auto & [image, wrap] : {std::pair(file, NBX::TextureGL::WM_Repeat),
                                       {other, NBX::TextureGL::WM_Repeat},
                                       {file, NBX::TextureGL::WM_ClampToEdge}}) {
        const SO<NBX::ImageTexture2DGL> texture(new NBX::ImageTexture2DGL(image, wrap, wrap));
        meshes.push_back(
            {SO<TextureWrapper>(new TextureWrapper(texture)),
             TriangleMeshes::setOf({{0, 0, 0}, {8, 0, 0}, {0, 0, 8}}, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}})});
    }
    const SO<TriangleContainer> container(new TriangleContainer(TriangleMeshes::meshesOf(meshes)));
    SourceTextures textures(*container, 1); // one at a time
    EXPECT_TRUE(drawLeafAtlas(allInLeaf(*container), container, textures, resolution(256), nullptr));
    EXPECT_EQ(2U, textures.loads());
}

TEST(LeafAtlas, BetweenTwoTexturesItMayBeTheEnd) {
    const SO<TriangleContainer> container = squaresInPairs();
    SourceTextures textures(*container);
    int questions = 0;
    LeafAtlases atlases(twoLeaves(), container, textures, resolution(512), nullptr,
                        [&questions] { return ++questions <= 7; });
    EXPECT_TRUE(atlases.next());
    EXPECT_EQ(7U, textures.loads());
}

/// However many textures the patches of a leaf show.
TEST(LeafAtlas, PatchesAreDrawnWithFewImagesAtOnce) {
    constexpr int side = 512;
    std::vector<unsigned> squares;
    for (unsigned i = 0; i < 60; ++i)
        squares.push_back(i);
    TexturedTriangleTree::enforceUniqueTextureParameterization(true);
    for (const bool shrink : {false, true}) {
        const SO<TriangleContainer> container = CitySquares::container(squares, 8, [shrink](unsigned number) {
            return SO<Image>(new PictureInAFile(4 * int(number) + 8, shrink));
        });
        const SO<NBX::GLCanvas> canvas(new NBX::PBufferCanvasGL(side, side));
        SourceTextures textures(*container);
        CountedPixels::s_most = CountedPixels::s_alive;
        const SO<Image> atlas =
            drawLeafAtlas(allInLeaf(*container), container, textures, resolution(side), canvas.get());
        ASSERT_TRUE(atlas);
        EXPECT_LE(CountedPixels::s_most, int(SourceTextures::s_mostImages) + 1);
        std::map<int, int> texels;
        for (int y = 0; y < side; ++y)
            for (int x = 0; x < side; ++x)
                ++texels[atlas->pixelComponentsU8(x, y, 2)[0]];
        for (const unsigned number : squares)
            EXPECT_GE(texels[4 * int(number) + 8], 32 * 32) << number;
    }
    TexturedTriangleTree::enforceUniqueTextureParameterization(false);
    EXPECT_EQ(0, CountedPixels::s_alive);
}

/// The background is a colour of no texture: what has it has not been drawn.
TEST(LeafAtlas, BetweenPatchesIsTheColourOfWhatIsAround) {
    constexpr int side = 128;
    const SO<TriangleContainer> container = CitySquares::container({2, 2, 2}, 2);
    const SO<NBX::Array<V>> vertices(new NBX::Array<V>()), coordinates(new NBX::Array<V>());
    const SO<NBX::Array<int>> numbers(new NBX::Array<int>());
    const SO<AtlasTreeGenerator::Triangles> triangles = allInLeaf(*container);
    for (const TriangleContainer::TriangleID & id : *triangles) {
        for (unsigned k = 0; k < 3; ++k) {
            vertices->append(container->triangle(id).vertices[k]);
            coordinates->append(container->triangle(id).texCoords[k]);
        }
        numbers->append(0);
    }
    const SO<NBX::GLCanvas> canvas(new NBX::PBufferCanvasGL(side, side));
    const NBX::Color yellow(1.0F, 1.0F, 0.0F, 1.0F);
    canvas->setBackgroundColor(yellow);
    SourceTextures textures(*container);
    const SO<NBX::Array<SO<NBX::ImageTexture2DGL>>> all(new NBX::Array<SO<NBX::ImageTexture2DGL>>());
    all->append(new NBX::ImageTexture2DGL(CitySquares::ramp(2)));
    const auto [distance, fieldOfView, screenSize, quality, size] = resolution(side);
    const SO<Image> unfilled =
        TextureAtlasGenerator::create(
            vertices.get(), coordinates.get(), numbers.get(), all.get(),
            TextureSizeCalculator::unitsPerTexel(distance, fieldOfView, screenSize, quality),
            TextureSizeCalculator::BORDER, side, canvas.get())
            .image;
    TexturedTriangleTree::enforceUniqueTextureParameterization(true);
    const SO<Image> atlas = drawLeafAtlas(triangles, container, textures, resolution(side), canvas.get());
    TexturedTriangleTree::enforceUniqueTextureParameterization(false);
    ASSERT_TRUE(unfilled);
    ASSERT_TRUE(atlas);
    EXPECT_EQ(yellow, canvas->getBackgroundColor());
    int filled = 0;
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            const bool isDrawn = unfilled->pixelComponentsU8(x, y, 1)[0] != 255;
            filled += isDrawn ? 0 : 1;
            for (int layer = 0; isDrawn && layer < 3; ++layer)
                EXPECT_EQ(unfilled->pixelComponentsU8(x, y, layer)[0],
                          atlas->pixelComponentsU8(x, y, layer)[0])
                    << x << ' ' << y;
            EXPECT_LT(atlas->pixelComponentsU8(x, y, 1)[0], 255) << x << ' ' << y;
            EXPECT_EQ(51, atlas->pixelComponentsU8(x, y, 2)[0]) << x << ' ' << y;
        }
    EXPECT_GT(filled, 1000);
    EXPECT_LT(filled, side * side - 1000);
}

} // namespace
