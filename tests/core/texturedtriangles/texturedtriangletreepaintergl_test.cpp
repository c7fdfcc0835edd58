#include "core/texturedtriangles/texturedtriangletreepaintergl.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/object/callback.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/viewinfo.h>
#include <support/damagedstreams.h>
#include <support/glfixture.h>
#include <support/roundtrip.h>
#include <support/slotorder.h>

#include "core/texturedtriangles/smalltree.h"
#include "core/texturedtriangles/treeviewsgl.h"
#include "core/texturedtriangles/visibilitymanagergl.h"

namespace ZMT::CORE {
namespace {

using NBX::Color;
using NBX::SO;
using Painter = TexturedTriangleTreePainterGL;
using Node = RenderTree::NodePointer;
using V = NBX::Vector3Base<double>;

class TexturedTriangleTreePainterGLTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        eye = new NBX::LookAt({2, 2, -500}, {2, 2, 0});
        camera = new NBX::Camera(eye.get(), new NBX::Ortho(-2, 2, -2, 2, -1000, 10000));
        root->append(camera.get());
    }
    void show(const SmallTree & small) { root->append(small.tree.get()); }
    /// From straight ahead; the picture has the whole tree at any distance.
    void lookFrom(double distance, double x = 2.0, double y = 2.0) {
        eye->setFrom({x, y, -distance});
        eye->setTo({x, y, 0});
        camera->setProjection(new NBX::Ortho(-x, 4 - x, -y, 4 - y, -1000, 10000));
    }
    static char letter(const std::array<int, 4> & p) {
        const auto is = [](int value) { return value > 128; };
        const int bits = is(p[0]) * 1 + is(p[1]) * 2 + is(p[2]) * 4;
        return ".rgybmcw"[bits];
    }
    /// One letter for the middle of each leaf of a tree of depth 2, the upper row first.
    std::string picture() {
        const SO<NBX::Image> image = draw();
        std::string result;
        for (int row = 3; row >= 0; --row) {
            for (int column = 0; column < 4; ++column)
                result += letter(pixel(image, 8 + 16 * column, 8 + 16 * row));
            if (row > 0) result += '/';
        }
        return result;
    }
    std::string pictureFrom(double distance) {
        lookFrom(distance);
        return picture();
    }
    static std::string all(char letter) {
        const std::string row(4, letter);
        return row + "/" + row + "/" + row + "/" + row;
    }
    static unsigned drawCalls() { return Painter::statistics().drawCalls; }

    SO<NBX::LookAt> eye;
    SO<NBX::Camera> camera;
};

TEST_F(TexturedTriangleTreePainterGLTest, OperationsKeepTheirOrder) {
    EXPECT_TRUE(inSlotOrder(&Painter::accept, &Painter::isEqual, &Painter::classInfoNBX, &Painter::target,
                            &Painter::render));
    const SO<Painter> painter(new Painter());
    EXPECT_EQ(painter->target(), TexturedTriangleTree::ClassNameNBX());
    EXPECT_EQ(painter->service(), NBX::Painter::ClassNameNBX());
    const SmallTree small(1);
    EXPECT_FALSE(painter->render(nullptr, small.tree.get()));
    EXPECT_FALSE(painter->render(engine.get(), nullptr));
}

TEST_F(TexturedTriangleTreePainterGLTest, ATreeIsWholeAtEveryDistance) {
    SmallTree small(2);
    small.loadLevel(1, Color::green);
    small.loadLevel(2, Color::blue);
    small.loadAllOriginals(Color::white);
    show(small);
    EXPECT_EQ(pictureFrom(5000), all('r'));
    EXPECT_EQ(pictureFrom(401), all('r'));
    EXPECT_EQ(pictureFrom(399), all('g'));
    EXPECT_EQ(pictureFrom(201), all('g'));
    EXPECT_EQ(pictureFrom(190), all('b'));
    EXPECT_EQ(pictureFrom(101), all('b'));
    EXPECT_EQ(pictureFrom(90), all('w'));
    EXPECT_EQ(pictureFrom(0.5), all('w'));
}

TEST_F(TexturedTriangleTreePainterGLTest, WithTheRootAtlasAloneTheWholeTreeHasIt) {
    const SmallTree small(2);
    show(small);
    for (const double distance : {5000.0, 300.0, 150.0, 50.0, 0.5}) {
        Painter::resetStatistics();
        EXPECT_EQ(pictureFrom(distance), all('r'));
        EXPECT_EQ(Painter::statistics().nodes, 1U);
        EXPECT_EQ(drawCalls(), 1U) << "one call for the batch of the root";
        EXPECT_EQ(Painter::statistics().vertices, 16U * 6);
    }
}

TEST_F(TexturedTriangleTreePainterGLTest, ANodeStandsInUntilAllOfItsChildrenAreThere) {
    SmallTree small(2);
    small.loadLevel(1, Color::green);
    show(small);
    small.load(small.node({1}), nullptr);
    EXPECT_EQ(pictureFrom(300), all('r'));
    small.load(small.node({1}), small.texture(Color::green));
    EXPECT_EQ(pictureFrom(300), all('g'));
    // Of one quarter all leaves are there, of another one but three.
    for (const unsigned leaf : {0U, 1U, 2U, 3U})
        small.load(small.node({3, leaf}), small.texture(Color::blue));
    for (const unsigned leaf : {0U, 1U, 2U})
        small.load(small.node({0, leaf}), small.texture(Color::blue));
    EXPECT_EQ(pictureFrom(150), "ggbb/ggbb/gggg/gggg");
}

TEST_F(TexturedTriangleTreePainterGLTest, ChildrenWithoutGeometryAreNotWaitedFor) {
    SmallTree small(1);
    small.loadLevel(1, Color::green);
    show(small);
    small.load(small.node({2}), nullptr);
    small.node({2})->content.bounds = NBX::Bounds();
    EXPECT_EQ(pictureFrom(150), "..gg/..gg/gggg/gggg");
}

TEST_F(TexturedTriangleTreePainterGLTest, AnAtlasThatHasGoneIsReplacedByTheParents) {
    SmallTree small(2);
    small.loadLevel(1, Color::green);
    small.loadLevel(2, Color::blue);
    show(small);
    EXPECT_EQ(pictureFrom(150), all('b'));
    small.held.resize(5); // those of the root and of its children
    EXPECT_EQ(pictureFrom(150), all('g'));
    small.held.resize(1);
    EXPECT_EQ(pictureFrom(150), all('r'));
}

TEST_F(TexturedTriangleTreePainterGLTest, AnAtlasThatCannotBeDrawnCountsAsMissing) {
    SmallTree small(1);
    small.loadLevel(1, Color::green);
    small.held.emplace_back(new SmallTree::StreamTexture(16, 16, new NBX::MemoryDataResource(5),
                                                         TexturedTriangleTree::TextureFormatRGBA8));
    small.load(small.node({0}), small.held.back());
    show(small);
    EXPECT_EQ(pictureFrom(150), all('r'));
}

TEST_F(TexturedTriangleTreePainterGLTest, WithAQualityOfTwoNodesSwitchAtTwiceTheDistance) {
    SmallTree small(2);
    small.loadLevel(1, Color::green);
    small.loadLevel(2, Color::blue);
    small.loadAllOriginals(Color::white);
    show(small);
    small.tree->setQualityFactor(2.0);
    EXPECT_EQ(pictureFrom(801), all('r'));
    EXPECT_EQ(pictureFrom(799), all('g'));
    EXPECT_EQ(pictureFrom(401), all('g'));
    EXPECT_EQ(pictureFrom(390), all('b'));
    EXPECT_EQ(pictureFrom(201), all('b'));
    EXPECT_EQ(pictureFrom(190), all('w'));
}

TEST_F(TexturedTriangleTreePainterGLTest, BeyondTheFarLimitNothingIsDrawn) {
    SmallTree small(2);
    small.loadLevel(1, Color::green);
    small.loadLevel(2, Color::blue);
    show(small);
    small.tree->enableMaxDistance(450);
    EXPECT_EQ(pictureFrom(460), all('.'));
    EXPECT_EQ(pictureFrom(440), all('r'));
    small.tree->disableMaxDistance();
    EXPECT_EQ(pictureFrom(460), all('r'));
    // From the corner, squares that lie beyond are left out.
    small.tree->enableMaxDistance(3.7);
    lookFrom(3, 0, 0);
    EXPECT_EQ(picture(), "..../b.../bb../bbb.");
}

TEST_F(TexturedTriangleTreePainterGLTest, EachAtlasIsSeenWhereItBelongs) {
    const auto quadrants = [](int x, int y) {
        const int half = SmallTree::atlasSize / 2;
        if (y < half) return x < half ? Color::red : Color::green;
        return x < half ? Color::blue : Color::white;
    };
    SmallTree small(2);
    small.tree->registerTextureLayer(0, small.pagingFile(), small.texture(SmallTree::image(quadrants)),
                                     TexturedTriangleTree::TextureFormatRGBA8);
    show(small);
    EXPECT_EQ(pictureFrom(500), "bbww/bbww/rrgg/rrgg");
    small.forLevel(1,
                   [&](const Node & node) { small.load(node, small.texture(SmallTree::image(quadrants))); });
    EXPECT_EQ(pictureFrom(300), "bwbw/rgrg/bwbw/rgrg");
}

TEST_F(TexturedTriangleTreePainterGLTest, ARootAtlasMayBeAnImageTexture) {
    SmallTree small(1);
    small.tree->registerTextureLayer(0, small.pagingFile(),
                                     new NBX::ImageTexture2DGL(SmallTree::image([](int x, int) {
                                         return x < SmallTree::atlasSize / 2 ? Color::blue : Color::green;
                                     })),
                                     TexturedTriangleTree::TextureFormatRGBA8);
    show(small);
    EXPECT_EQ(pictureFrom(500), "bbgg/bbgg/bbgg/bbgg");
}

TEST_F(TexturedTriangleTreePainterGLTest, RootAtlasesKeepTheirDataWhenTheyAreDrawn) {
    const SmallTree small(1);
    const auto dataOf = [](const TexturedTriangleTree & tree) {
        return NBX::soCast<SmallTree::StreamTexture>(tree.getRootAtlas(0))->data();
    };
    const SO<TexturedTriangleTree> read = roundTrip(small.tree);
    ASSERT_TRUE(dataOf(*small.tree) && dataOf(*read));
    show(small);
    EXPECT_EQ(pictureFrom(500), all('r'));
    EXPECT_TRUE(dataOf(*small.tree));
    root->remove(small.tree.get());
    root->append(read.get());
    EXPECT_EQ(pictureFrom(500), all('r'));
    EXPECT_TRUE(dataOf(*read)) << "also where they were read";
}

TEST_F(TexturedTriangleTreePainterGLTest, ATreeOfOneNodeIsDrawn) {
    SmallTree small(0);
    show(small);
    EXPECT_EQ(pictureFrom(500), all('r'));
    EXPECT_EQ(pictureFrom(50), all('r'));
    small.loadAllOriginals(Color::white);
    EXPECT_EQ(pictureFrom(50), all('w'));
}

TEST_F(TexturedTriangleTreePainterGLTest, LeavesAreDrawnBySourceTexturesOnceTheseAreUploaded) {
    SmallTree small(1);
    small.loadLevel(1, Color::green);
    small.loadAllOriginals(Color::white);
    small.node({0})->content.textureStates[0] = false;
    small.node({1})->content.originalTextures->set(0, nullptr);
    small.node({2})->content.originalGeometry.clear();
    show(small);
    EXPECT_EQ(pictureFrom(50), "ggww/ggww/gggg/gggg");
}

/// What is seen at an edge is half a texel from it, where a texture that repeats has a share of the other
/// edge.
TEST_F(TexturedTriangleTreePainterGLTest, SourceTexturesGoOnBeyondTheirEdgesAsTheyShall) {
    using Wrap = NBX::TextureGL::WrapMode;
    SmallTree small(1);
    small.loadLevel(1, Color::green);
    const auto image =
        small.image([](int x, int y) { return Color(x < 8 ? 1.0 : 0.0, y < 8 ? 1.0 : 0.0, 0.0); });
    small.forLevel(1, [&](const Node & leaf) {
        leaf->content.originalTextures->set(0, small.texture(image));
        leaf->content.textureStates = {true};
    });
    show(small);
    const auto corner = [&](int wrapS, int wrapT) {
        small.node({0})->content.originalTexturesWrapModes = {wrapS, wrapT};
        lookFrom(50);
        return pixel(draw(), 0, 0);
    };
    const auto repeated = corner(Wrap::WM_Repeat, Wrap::WM_Repeat);
    EXPECT_LT(repeated[0], 230);
    EXPECT_LT(repeated[1], 230);
    const auto clamped = corner(Wrap::WM_ClampToEdge, Wrap::WM_Repeat);
    EXPECT_EQ(clamped[0], 255);
    EXPECT_EQ(clamped[1], repeated[1]);
    const auto mirrored = corner(Wrap::WM_Repeat, Wrap::WM_MirroredRepeat);
    EXPECT_EQ(mirrored[0], repeated[0]);
    EXPECT_EQ(mirrored[1], 255);
    const auto bordered = corner(Wrap::WM_ClampToBorder, Wrap::WM_Clamp);
    EXPECT_EQ(bordered[0], 255);
    EXPECT_EQ(bordered[1], 255);
    EXPECT_EQ(corner(Wrap::WM_Repeat, Wrap::WM_Repeat), repeated) << "as before";
}

TEST_F(TexturedTriangleTreePainterGLTest, ALeafWithoutAnArrayOfSourceTexturesIsReported) {
    SmallTree small(1);
    small.loadLevel(1, Color::green);
    small.node({0})->content.originalTextures = nullptr;
    show(small);
    EXPECT_EQ(pictureFrom(150), all('g'));
    EXPECT_TRUE(reports.empty());
    EXPECT_EQ(pictureFrom(50), all('g'));
    EXPECT_EQ(reports.count(0, L"ptr->content.originalTextures!=0", L"texture array must not be NULL"), 1U);
    reports.clear();
}

TEST_F(TexturedTriangleTreePainterGLTest, LeavesWithoutArraysAreToldOnceATreeNotInEveryPicture) {
    SmallTree small(1), other(1);
    for (SmallTree * tree : {&small, &other}) {
        tree->loadLevel(1, Color::green);
        for (const unsigned leaf : {0U, 1U, 3U})
            tree->node({leaf})->content.originalTextures = nullptr;
    }
    const auto told = [&] {
        return reports.count(0, L"ptr->content.originalTextures!=0", L"texture array must not be NULL");
    };
    show(small);
    for (int frame = 0; frame < 4; ++frame)
        EXPECT_EQ(pictureFrom(50), all('g'));
    EXPECT_EQ(told(), 1U) << reports;
    SO<NBX::OffscreenCanvasGL> second(new NBX::OffscreenCanvasGL(16, 16));
    second->append(root.get());
    second->redisplay();
    EXPECT_EQ(told(), 1U) << "it was told in another view\n" << reports;
    second->destroy();
    ASSERT_TRUE(canvas->makeContextCurrent());
    show(other);
    for (int frame = 0; frame < 4; ++frame)
        EXPECT_EQ(pictureFrom(50), all('g'));
    EXPECT_EQ(told(), 2U) << reports;
    EXPECT_EQ(reports.size(), 2U) << reports;
    reports.clear();
}

TEST_F(TexturedTriangleTreePainterGLTest, UntexturedGeometryIsDrawnAlsoWithoutATree) {
    const SO<TexturedTriangleTree> tree(new TexturedTriangleTree());
    const SmallTree small(1);
    tree->setUntexturedGeometry(small.node({3})->content.triangles);
    root->append(tree.get());
    EXPECT_EQ(pictureFrom(150), "..ww/..ww/..../....");
    const SO<Painter> painter(new Painter());
    EXPECT_TRUE(painter->render(engine.get(), tree.get()));
    EXPECT_TRUE(painter->render(engine.get(), SO<TexturedTriangleTree>(new TexturedTriangleTree()).get()));
}

TEST_F(TexturedTriangleTreePainterGLTest, WhatIsOutOfViewIsNotDrawn) {
    SmallTree small(1);
    small.loadLevel(1, Color::green);
    show(small);
    lookFrom(150);
    camera->setProjection(new NBX::Ortho(0.1, 2, -2, 2, 1, 10000));
    Painter::resetStatistics();
    draw();
    EXPECT_EQ(Painter::statistics().nodes, 2U);
    lookFrom(-150);
    camera->setProjection(new NBX::Ortho(-2, 2, -2, 2, 151, 10000));
    Painter::resetStatistics();
    draw();
    EXPECT_EQ(Painter::statistics().nodes, 0U);
}

TEST_F(TexturedTriangleTreePainterGLTest, NearChildrenAreDrawnFirst) {
    // Where two lie in one place, the one that is drawn first stays.
    SmallTree small(1);
    small.loadLevel(1, Color::green);
    small.load(small.node({3}), small.texture(Color::blue));
    for (unsigned i = 0; i < 4; ++i)
        small.node({i})->content.bounds = NBX::Bounds(V(0, 0, double(i)), V(4, 4, double(i)));
    small.node({3})->content.bounds = NBX::Bounds(V(0, 0, -1), V(4, 4, -1));
    const auto vertices = small.nodes->root()->content.vertexData->buffer(SmallTree::Mesh::Data::VERTEX_ID);
    auto * positions = static_cast<float *>(vertices->mapPointer());
    for (unsigned leaf = 1; leaf < 4; ++leaf)
        std::copy_n(positions, 18, positions + 18 * leaf);
    vertices->unmapPointer();
    show(small);
    EXPECT_EQ(pictureFrom(150).substr(10, 2), "bb");
    small.node({3})->content.bounds = NBX::Bounds(V(0, 0, 9), V(4, 4, 9));
    EXPECT_EQ(pictureFrom(150).substr(10, 2), "gg");
}

TEST_F(TexturedTriangleTreePainterGLTest, ANodeAboveTheBatchesDrawsAllOfThem) {
    // 16 leaves of 6000 vertices: the children of the root are batches of 24000.
    const SmallTree small(2, Color::red, 1000);
    ASSERT_FALSE(small.nodes->root()->content.vertexData);
    show(small);
    Painter::resetStatistics();
    EXPECT_EQ(pictureFrom(5000), all('r'));
    EXPECT_EQ(drawCalls(), 4U);
    EXPECT_EQ(Painter::statistics().nodes, 1U);
    EXPECT_EQ(Painter::statistics().vertices, 96000U);
}

TEST_F(TexturedTriangleTreePainterGLTest, WithoutABatchLeavesAreDrawnOneByOne) {
    SmallTree small(2);
    show(small);
    RenderNode & top = small.nodes->root()->content;
    const SO<NBX::MappedVertexAttributeDataGL> batch = top.vertexData;
    const auto expectLeaves = [&](const char * why) {
        Painter::resetStatistics();
        EXPECT_EQ(pictureFrom(500), all('r')) << why;
        EXPECT_EQ(drawCalls(), 16U) << why;
    };
    top.vertexData = nullptr;
    expectLeaves("no batch");
    top.vertexData = new NBX::MappedVertexAttributeDataGL();
    expectLeaves("a batch without vertices");
    top.vertexData = batch;
    top.vertexRangeStart = 50;
    top.numVertices = 90;
    small.forLevel(1, [](const Node & node) { node->content.vertexRangeStart = 2147483647; });
    small.forLevel(2, [](const Node & node) { node->content.vertexRangeStart = -7; });
    expectLeaves("ranges beyond the batch");
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TexturedTriangleTreePainterGLTest, LeavesTheStateOfGLAsItIsFound) {
    SmallTree small(2);
    small.loadLevel(1, Color::green);
    small.loadLevel(2, Color::blue);
    small.loadAllOriginals(Color::white);
    small.tree->registerTextureLayer(1, small.pagingFile(), small.texture(Color::white),
                                     TexturedTriangleTree::TextureFormatLuminance8);
    show(small);
    const auto everything = [&] {
        std::vector<int> state = stateOfGL();
        for (const GLenum unit : {GL_TEXTURE0, GL_TEXTURE1, GL_TEXTURE2}) {
            glActiveTexture(unit);
            const std::vector<int> ofUnit = stateOfGL();
            state.insert(state.end(), ofUnit.begin(), ofUnit.end());
            GLint mode = 0;
            glGetTexEnviv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, &mode);
            state.push_back(mode);
            GLfloat matrix[16];
            glGetFloatv(GL_TEXTURE_MATRIX, matrix);
            for (const GLfloat entry : matrix)
                state.push_back(int(entry * 1000));
        }
        glActiveTexture(GL_TEXTURE0);
        return state;
    };
    for (const bool blend : {false, true})
        for (const double distance : {500.0, 380.0, 150.0, 95.0}) {
            small.tree->setBlendingMode(blend);
            lookFrom(distance);
            draw();
            const std::vector<int> before = everything();
            engine->push(camera.get());
            engine->paint(small.tree.get());
            engine->pop(camera.get());
            EXPECT_EQ(before, everything()) << distance;
        }
}

TEST_F(TexturedTriangleTreePainterGLTest, ATextureOfTheSceneDoesNotShowThrough) {
    const SmallTree small(1);
    const SO<NBX::ImageTexture2DGL> other(
        new NBX::ImageTexture2DGL(SmallTree::image([](int, int) { return Color::blue; })));
    root->append(other.get());
    show(small);
    root->append(small.node({0})->content.triangles.get());
    EXPECT_EQ(pictureFrom(500), all('r'));
}

TEST_F(TexturedTriangleTreePainterGLTest, TheColoursOfVerticesAreMultiplied) {
    SmallTree small(1, Color::white);
    for (const bool blend : {false, true}) {
        root->clear();
        root->append(camera.get());
        root->append(new NBX::ColorAttribute(Color::green));
        show(small);
        small.loadLevel(1, Color::white);
        small.tree->setBlendingMode(blend);
        for (const double distance : {500.0, 190.0, 150.0})
            EXPECT_EQ(pictureFrom(distance), all('g')) << distance;
    }
}

class LayeredTreeTest : public TexturedTriangleTreePainterGLTest {
protected:
    /// White in colour, with a second layer that is bright on the left and dark on the right of each atlas.
    SmallTree small{2, Color::white};

    SO<SmallTree::StreamTexture> light() {
        return small.texture(SmallTree::image([](int x, int) {
                                 return x < SmallTree::atlasSize / 2 ? Color::white : Color::black;
                             }),
                             TexturedTriangleTree::TextureFormatLuminance8);
    }
    void SetUp() override {
        TexturedTriangleTreePainterGLTest::SetUp();
        small.tree->registerTextureLayer(1, small.pagingFile(), light(),
                                         TexturedTriangleTree::TextureFormatLuminance8);
        show(small);
    }
};

TEST_F(LayeredTreeTest, TheSecondLayerIsMultiplied) {
    EXPECT_EQ(pictureFrom(500), "ww../ww../ww../ww..");
    small.tree->setLayerEnabled(1, false);
    EXPECT_EQ(pictureFrom(500), all('w'));
    small.tree->setLayerEnabled(1, true);
    small.tree->setLayerEnabled(0, false);
    EXPECT_EQ(pictureFrom(500), "ww../ww../ww../ww..") << "alone it is seen as well";
    small.tree->setLayerEnabled(1, false);
    EXPECT_EQ(pictureFrom(500), all('w')) << "without layers there are the colours of the vertices";
}

TEST_F(LayeredTreeTest, EachLayerHasTheFinestAtlasThatIsThere) {
    small.loadLevel(1, Color::white);
    EXPECT_EQ(pictureFrom(300), "ww../ww../ww../ww..");
    small.forLevel(1, [&](const Node & node) { small.load(node, light(), 1); });
    EXPECT_EQ(pictureFrom(300), "w.w./w.w./w.w./w.w.");
    small.loadLevel(2, Color::white);
    EXPECT_EQ(pictureFrom(150), "w.w./w.w./w.w./w.w.");
}

TEST_F(LayeredTreeTest, TheSecondLayerAloneDecidesWhatIsDrawn) {
    small.tree->setLayerEnabled(0, false);
    Painter::resetStatistics();
    EXPECT_EQ(pictureFrom(300), "ww../ww../ww../ww..");
    EXPECT_EQ(Painter::statistics().nodes, 1U) << "the children wait for their atlases of this layer";
    small.forLevel(1, [&](const Node & node) { small.load(node, light(), 1); });
    EXPECT_EQ(pictureFrom(300), "w.w./w.w./w.w./w.w.");
    small.loadAllOriginals(Color::green);
    small.forLevel(2, [&](const Node & node) { small.load(node, light(), 1); });
    EXPECT_EQ(pictureFrom(50).find('g'), std::string::npos) << "source textures are of the first layer";
}

TEST_F(LayeredTreeTest, TheSecondLayerLiesOnSourceTextures) {
    small.loadLevel(1, Color::white);
    small.loadLevel(2, Color::white);
    small.loadAllOriginals(Color::green);
    EXPECT_EQ(pictureFrom(50), "gg../gg../gg../gg..");
    // Without coordinates for it, it is left out there.
    small.forLevel(2, [](const Node & node) {
        node->content.originalGeometry[0]->data()->setBuffer(SmallTree::Mesh::Data::TEXCOORD_ID(1), nullptr);
    });
    EXPECT_EQ(pictureFrom(50), all('g'));
}

/// Textures come from a paging file, red, green and blue from the root to the leaves, white ones as sources.
class StreamedTreeTest : public TexturedTriangleTreePainterGLTest {
protected:
    SmallTree small{2};

    void SetUp() override {
        TexturedTriangleTreePainterGLTest::SetUp();
        small.writePagingFile({Color::green, Color::blue}, Color::white);
        show(small);
        NBX::Canvas::postAllForRedisplay(0.0);
    }
    /// Draws as long as pictures are asked for; how many these were.
    unsigned settle() {
        unsigned frames = 0;
        for (bool isFirst = true; isFirst || canvas->redisplayPending(); isFirst = false) {
            canvas->redisplay();
            if (++frames == s_mostFrames) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return frames;
    }
    static constexpr unsigned s_mostFrames = 2000;
};

TEST_F(StreamedTreeTest, PicturesAreAskedForUntilTheFinestTexturesAreThere) {
    const struct {
        double distance;
        char letter;
    } cases[] = {{500, 'r'}, {300, 'g'}, {150, 'b'}, {50, 'w'}, {300, 'g'}};
    for (const auto & c : cases) {
        lookFrom(c.distance);
        EXPECT_LT(settle(), s_mostFrames) << c.distance;
        EXPECT_EQ(picture(), all(c.letter)) << c.distance;
        EXPECT_FALSE(canvas->redisplayPending()) << "settled at " << c.distance;
    }
}

/// Without the atlas of a node that finer ones replace, its parent would be drawn in their place.
TEST_F(StreamedTreeTest, WhatIsDrawnIsUrgentAndSoIsWhatItReplaces) {
    lookFrom(150);
    settle();
    const auto & loaded = TTTMemoryController::getInstance()->loadedNodes()->entries();
    unsigned drawn = 0, replaced = 0;
    for (const auto & ref : loaded) {
        if (ref.tree != small.tree.get()) continue;
        (ref.depth == 2 ? drawn : replaced) += 1;
        EXPECT_EQ(ref.urgency, 0);
    }
    EXPECT_EQ(drawn, 16U);
    EXPECT_EQ(replaced, 4U);
    // While a level is blended in, both are drawn.
    small.tree->setBlendingMode(true);
    lookFrom(190);
    settle();
    draw(); // takes the wishes of the one before
    for (const auto & ref : TTTMemoryController::getInstance()->loadedNodes()->entries())
        if (ref.tree == small.tree.get()) {
            EXPECT_EQ(ref.urgency, 0);
        }
}

TEST_F(StreamedTreeTest, ATreeIsWholeWhileTexturesArrive) {
    for (const double distance : {300.0, 150.0, 50.0}) {
        lookFrom(distance);
        for (int frame = 0; frame < 200 && (frame < 2 || canvas->redisplayPending()); ++frame)
            EXPECT_EQ(picture().find('.'), std::string::npos) << distance;
    }
}

TEST_F(StreamedTreeTest, BeyondTheFarLimitNothingIsAskedFor) {
    small.tree->enableMaxDistance(100.0);
    lookFrom(150);
    EXPECT_LT(settle(), 5U);
    for (const char letter : picture())
        EXPECT_TRUE(letter == '.' || letter == '/');
    small.forLevel(1, [](const Node & node) { EXPECT_FALSE(node->content.texture(0)); });
    small.tree->disableMaxDistance();
    settle();
    small.forLevel(1, [](const Node & node) { EXPECT_TRUE(node->content.texture(0)); });
}

TEST_F(StreamedTreeTest, WithoutItsFileItHasTheRootAtlasAndSettles) {
    small.tree->changePagingFileName(L"/nowhere/at/all", 0);
    lookFrom(50);
    EXPECT_LT(settle(), 10U);
    EXPECT_EQ(picture(), all('r'));
    EXPECT_FALSE(canvas->redisplayPending());
    EXPECT_EQ(reports.count(2, L"false", L"failed to open streaming file: /nowhere/at/all"), 1U);
    EXPECT_EQ(reports.size(), 1U);
    reports.clear();
    small.tree->changePagingFileName(small.pagingFile(), 0);
    settle();
    EXPECT_EQ(picture(), all('w'));
}

TEST_F(StreamedTreeTest, TwoWindowsBothSettle) {
    lookFrom(150);
    const SO<NBX::OffscreenCanvasGL> second(new NBX::OffscreenCanvasGL(32, 32));
    const SO<NBX::SceneThing> other(new NBX::SceneThing());
    other->append(new NBX::Camera(new NBX::LookAt({2, 2, -300}, {2, 2, 0}),
                                  new NBX::Ortho(-2, 2, -2, 2, -1000, 10000)));
    other->append(small.tree.get());
    second->append(other.get());
    unsigned frames = 0;
    do {
        second->redisplay();
        canvas->redisplay();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    } while ((canvas->redisplayPending() || second->redisplayPending()) && ++frames < s_mostFrames);
    EXPECT_LT(frames, s_mostFrames);
    EXPECT_EQ(picture(), all('b'));
    second->releaseContext();
    canvas->makeContextCurrent();
}

TEST_F(StreamedTreeTest, TheControllerGoesOnOnceAFrameForAllTrees) {
    SmallTree second(1);
    second.writePagingFile({Color::green}, Color::white);
    show(second);
    show(small); // and one of them twice
    lookFrom(150);
    settle();
    const auto controller = TTTMemoryController::getInstance();
    // Each time it looks at the clock equally often, once the view has settled.
    unsigned looks = 0;
    controller->setClock([&looks] {
        ++looks;
        return 0.0;
    });
    controller->update(engine, nullptr);
    const unsigned ofOne = looks;
    draw(); // its wishes are anew those of the frame
    looks = 0;
    for (int frame = 0; frame < 100; ++frame)
        canvas->redisplay();
    controller->setClock({});
    EXPECT_GT(ofOne, 0U);
    EXPECT_EQ(looks, 100 * ofOne);
    root->remove(second.tree.get());
}

TEST_F(StreamedTreeTest, ATreeMayGoWhileItIsRead) {
    lookFrom(150);
    draw();
    draw();
    root->remove(small.tree.get());
    NBX::WO<TexturedTriangleTree> tree(small.tree);
    small.tree = nullptr;
    EXPECT_FALSE(tree);
    SmallTree next(1);
    next.writePagingFile({Color::green}, Color::white);
    show(next);
    settle();
    EXPECT_EQ(picture(), all('g'));
    root->remove(next.tree.get());
}

TEST_F(StreamedTreeTest, UploadsLeaveTheTextureOfTheSceneInForce) {
    root->clear();
    root->append(camera.get());
    root->append(new NBX::ImageTexture2DGL(SmallTree::image([](int, int) { return Color::blue; })));
    show(small);
    // In front of the tree, and behind it in the node.
    const SmallTree shape(0);
    const auto & mesh = shape.nodes->root()->content.triangles;
    const auto positions = mesh->data()->buffer(SmallTree::Mesh::Data::VERTEX_ID);
    for (unsigned i = 2; i < 18; i += 3)
        static_cast<float *>(positions->mapPointer())[i] = -1.0F;
    positions->unmapPointer();
    root->append(mesh.get());
    lookFrom(300);
    for (int frame = 0; frame < 20; ++frame)
        EXPECT_EQ(picture(), all('b'));
}

/// How much successive pictures of a slow approach differ at most.
class ApproachTest : public TexturedTriangleTreePainterGLTest {
protected:
    SmallTree small{2};

    void SetUp() override {
        TexturedTriangleTreePainterGLTest::SetUp();
        small.loadLevel(1, Color::green);
        small.loadLevel(2, Color::blue);
        small.loadAllOriginals(Color::white);
        show(small);
    }
    int largestJump() {
        int largest = 0;
        SO<NBX::Image> before;
        for (double distance = 430.0; distance > 60.0; distance *= 0.996) {
            lookFrom(distance);
            const SO<NBX::Image> now = draw();
            if (before) largest = std::max(largest, largestDifference(before, now));
            before = now;
        }
        return largest;
    }
};

TEST_F(ApproachTest, JumpsWithoutBlending) {
    EXPECT_EQ(largestJump(), 255);
}

TEST_F(ApproachTest, DoesNotJumpWithBlending) {
    small.tree->setBlendingMode(true);
    // A step of 0.4 % of the distance is 1.6 % of the range in which a level is blended in, so 4 of 255.
    EXPECT_LE(largestJump(), 5);
    EXPECT_EQ(pictureFrom(401), all('r'));
    EXPECT_EQ(pictureFrom(299), all('g'));
    EXPECT_EQ(pictureFrom(149), all('b'));
    EXPECT_EQ(pictureFrom(74), all('w'));
}

TEST_F(ApproachTest, DoesNotJumpWithBlendingInTwoLayers) {
    small.tree->setBlendingMode(true);
    const auto grey = [&](float value) {
        return small.texture(SmallTree::image([=](int, int) { return Color(value); }),
                             TexturedTriangleTree::TextureFormatLuminance8);
    };
    small.tree->registerTextureLayer(1, small.pagingFile(), grey(1.0F),
                                     TexturedTriangleTree::TextureFormatLuminance8);
    small.forLevel(1, [&](const Node & node) { small.load(node, grey(0.7F), 1); });
    small.forLevel(2, [&](const Node & node) { small.load(node, grey(0.9F), 1); });
    // Each of the two has half of the range.
    EXPECT_LE(largestJump(), 10);
    lookFrom(299);
    EXPECT_NEAR(pixel(draw(), 8, 8)[1], 255 * 0.7, 2);
    lookFrom(149);
    EXPECT_NEAR(pixel(draw(), 8, 8)[2], 255 * 0.9, 2);
}

TEST_F(ApproachTest, WithOneTextureUnitTheFineLevelIsShown) {
    small.tree->setBlendingMode(true);
    lookFrom(350);
    const std::array<int, 4> blended = pixel(draw(), 8, 8);
    EXPECT_TRUE(blended[0] > 50 && blended[1] > 50);
    NBX::EngineGL::setMaxTextureUnitsLimit(1);
    const std::array<int, 4> plain = pixel(draw(), 8, 8);
    NBX::EngineGL::setMaxTextureUnitsLimit(0);
    EXPECT_EQ(plain, (std::array<int, 4>{0, 255, 0, 255}));
}

TEST_F(ApproachTest, SourceTexturesWithoutTreeCoordinatesAreNotBlended) {
    small.tree->setBlendingMode(true);
    small.forLevel(2, [](const Node & node) {
        node->content.originalGeometry[0]->data()->setBuffer(SmallTree::Mesh::Data::TEXCOORD_ID(1), nullptr);
    });
    EXPECT_EQ(pictureFrom(95), all('w'));
}

TEST_F(TexturedTriangleTreePainterGLTest, CountsWhatIsSeenOfEachNode) {
    SmallTree small(1);
    small.loadLevel(1, Color::green);
    show(small);
    lookFrom(150);
    const SO<VisibilityManager> manager = TreeViewsGL::managerOf(small.tree.get(), engine.get());
    draw();
    glFinish();
    draw();
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(manager->fragmentCount(visibilityKey(small.node({i}))), 32U * 32);
    EXPECT_EQ(manager->fragmentCount(visibilityKey(small.node({}))), 0U);
}

TEST_F(TexturedTriangleTreePainterGLTest, WhatIsMissingIsTakenForAQuarterOfItsParent) {
    const SmallTree small(1);
    show(small);
    lookFrom(150);
    const SO<VisibilityManager> manager = TreeViewsGL::managerOf(small.tree.get(), engine.get());
    for (int frame = 0; frame < 3; ++frame) {
        draw();
        glFinish();
    }
    EXPECT_EQ(manager->fragmentCount(visibilityKey(small.nodes->root())), 64U * 64);
    EXPECT_EQ(manager->fragmentCount(visibilityKey(small.nodes->child(small.nodes->root(), 2))), 32U * 32);
}

TEST_F(TexturedTriangleTreePainterGLTest, SourceTexturesThatAreMissingAreTakenForTheirShareOfTheLeaf) {
    SmallTree small(1);
    small.loadLevel(1, Color::green);
    RenderNode & leaf = small.node({2})->content;
    leaf.originalTextures = new RenderNode::Textures(2);
    leaf.originalTexturesBlockPositions = {1000, 2000}; // beyond the file
    leaf.originalTexturesBlockSizes = {10, 10};
    leaf.textureStates = {false, false};
    show(small);
    lookFrom(50);
    const SO<VisibilityManager> manager = TreeViewsGL::managerOf(small.tree.get(), engine.get());
    for (int frame = 0; frame < 3; ++frame) {
        draw();
        glFinish();
    }
    for (unsigned i = 0; i < 2; ++i)
        EXPECT_EQ(manager->fragmentCount(visibilityKey(small.node({2}), i)), 32U * 32 / 2) << i;
    reports.clear();
}

TEST_F(TexturedTriangleTreePainterGLTest, OneTreeInTwoWindowsHasQueriesInBoth) {
    SmallTree small(1);
    small.loadLevel(1, Color::green);
    show(small);
    lookFrom(150);
    {
        const SO<NBX::OffscreenCanvasGL> second(new NBX::OffscreenCanvasGL(32, 32));
        ASSERT_TRUE(second->isCreated());
        second->append(root.get());
        for (int frame = 0; frame < 5; ++frame) {
            second->redisplay();
            EXPECT_EQ(picture(), all('g'));
        }
        second->makeContextCurrent();
        glFinish();
        second->redisplay();
        const auto first = TreeViewsGL::managerOf(small.tree.get(), engine.get());
        const auto other = TreeViewsGL::managerOf(small.tree.get(), second->engine().get());
        EXPECT_NE(first, other);
        EXPECT_EQ(first->fragmentCount(visibilityKey(small.node({0}))), 32U * 32);
        EXPECT_EQ(other->fragmentCount(visibilityKey(small.node({0}))), 16U * 16);
        EXPECT_EQ(GLenum(GL_NO_ERROR), glGetError());
        second->releaseContext();
    }
    canvas->makeContextCurrent();
    EXPECT_EQ(picture(), all('g'));
}

TEST_F(TexturedTriangleTreePainterGLTest, ManagersGoWithTheirTreeAndTheirEngine) {
    NBX::WO<VisibilityManager> manager;
    {
        const SmallTree small(1);
        manager = TreeViewsGL::managerOf(small.tree.get(), engine.get());
        EXPECT_TRUE(manager);
        EXPECT_EQ(manager.lock(), TreeViewsGL::managerOf(small.tree.get(), engine.get()));
    }
    const SmallTree other(1);
    TreeViewsGL::managerOf(other.tree.get(), engine.get());
    EXPECT_FALSE(manager);
    manager = TreeViewsGL::managerOf(other.tree.get(), engine.get());
    engine->cleanUp();
    EXPECT_FALSE(manager);
}

/// The latest of an engine's callbacks is called first.
TEST_F(TexturedTriangleTreePainterGLTest, AnEngineIsAskedOnceToTellItsEnd) {
    static NBX::WO<VisibilityManager> manager;
    static bool wasThere = false;
    for (int round = 0; round < 2; ++round) {
        const SmallTree first(1);
        const auto lookAtManager = [](SO<NBX::EngineGL>) { wasThere = bool(manager); };
        for (unsigned i = 0; i < 2; ++i) {
            const SmallTree passing(1);
            manager = TreeViewsGL::managerOf(passing.tree.get(), engine.get());
        }
        engine->registerCleanUpCallback(new NBX::FunctionCallback1<SO<NBX::EngineGL>>(lookAtManager));
        // All others have gone; the engine was asked all the same.
        manager = TreeViewsGL::managerOf(first.tree.get(), engine.get());
        EXPECT_TRUE(manager);
        engine->cleanUp();
        EXPECT_TRUE(wasThere) << round;
        EXPECT_FALSE(manager) << round;
    }
}

/// Asks whether it begins a picture when it is painted.
class Asking : public NBX::Shape {
    NBX_TEMPLATE_CLASS(Asking, NBX::Shape)
public:
    Asking() : Shape(true) {}
    static inline unsigned first = 0, all = 0;
};

class AskingPainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(AskingPainter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return Asking::ClassNameNBX(); }
    bool render(NBX::Engine * engine, const NBX::Shape *) override {
        ++Asking::all;
        Asking::first += TreeViewsGL::beginsPicture(dynamic_cast<NBX::EngineGL *>(engine)) ? 1 : 0;
        return true;
    }
};
NBX_REGISTER_HANDLER_GL(AskingPainter)

TEST_F(TexturedTriangleTreePainterGLTest, APictureBeginsOnceWhateverIsInIt) {
    for (int i = 0; i < 2; ++i)
        root->append(new Asking());
    Asking::first = Asking::all = 0;
    for (int frame = 0; frame < 100; ++frame)
        canvas->redisplay();
    EXPECT_EQ(Asking::all, 200U);
    EXPECT_EQ(Asking::first, 100U);
    const SO<NBX::OffscreenCanvasGL> second(new NBX::OffscreenCanvasGL(8, 8));
    second->append(root.get());
    for (int frame = 0; frame < 10; ++frame) {
        second->redisplay();
        canvas->redisplay();
    }
    EXPECT_EQ(Asking::first, 120U) << "each canvas has pictures of its own";
    second->releaseContext();
    canvas->makeContextCurrent();
    // Outside of pictures nothing tells them apart.
    const SO<Asking> outside(new Asking());
    engine->paint(outside.get());
    engine->paint(outside.get());
    EXPECT_EQ(Asking::first, 122U);
}

TEST_F(TexturedTriangleTreePainterGLTest, DamagedTreesAreDrawnModestly) {
    SmallTree small(1);
    small.tree->registerTextureLayer(1, small.pagingFile(), small.texture(Color::white),
                                     TexturedTriangleTree::TextureFormatLuminance8);
    small.tree->setBlendingMode(true);
    lookFrom(60);
    expectModestReading(*small.tree, [&](const SO<NBX::SharedObj> & object) {
        const auto tree = NBX::soCast<TexturedTriangleTree>(object);
        if (!tree) return;
        root->append(tree.get());
        canvas->redisplay();
        root->remove(tree.get());
    });
    while (glGetError() != GL_NO_ERROR)
        ADD_FAILURE() << "OpenGL was given something that it does not take";
}

} // namespace
} // namespace ZMT::CORE
