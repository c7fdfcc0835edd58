#include "core/texturedtriangles/texturedtriangletree_impl/texturedtriangletreebuild.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>

#include <gtest/gtest.h>

#include <nbx/data/binaryobjectwriter.h>
#include <nbx/data/file.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/texture/textureunitsettinggl.h>
#include <nbx/image/encodedimage.h>
#include <nbx/image/imagewriter.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/node/lodnode.h>
#include <support/cancelingdisplay.h>
#include <support/filesizelimit.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <zmt/core/texturedtriangles/heldpagingfiles.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include "citysquares.h"

namespace {

using namespace ZMT::CORE;
using CitySquares::V;
using NBX::GLCanvas;
using NBX::Image;
using NBX::PolygonSet;
using NBX::SceneThing;
using NBX::SO;
using Tree = TexturedTriangleTree;
using StreamTexture = TTTMemoryController::StreamTexture;

/// On the ground, 8 units wide, from `x`, 0 on.
SO<PolygonSet> square(double x, bool hasCoordinates = true) {
    TriangleMeshes::Vectors vertices, texCoords;
    for (const auto & [s, t] : {std::pair(0, 0), {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}}) {
        vertices.push_back(V(x + 8.0 * s, 0.0, 8.0 * t));
        texCoords.push_back(V(s, t, 0.0));
    }
    return TriangleMeshes::setOf(vertices, hasCoordinates ? texCoords : TriangleMeshes::Vectors());
}

SO<NBX::ImageTexture2DGL> texture(unsigned number, int alpha = 255) {
    const SO<Image> image = CitySquares::ramp(number, alpha < 255 ? NBX::LS_RGBA : NBX::LS_RGB);
    for (int y = 0; alpha < 255 && y < image->height(); ++y)
        for (int x = 0; x < image->width(); ++x)
            image->pixelComponentsU8(x, y, 3)[0] = static_cast<unsigned char>(alpha);
    return new NBX::ImageTexture2DGL(image);
}

SO<SceneThing> nodeOf(const std::vector<NBX::RenderObj *> & objects) {
    SO<SceneThing> node(new SceneThing());
    for (NBX::RenderObj * object : objects)
        node->append(object);
    return node;
}

/// Squares in a row, each with a texture of its own.
SO<SceneThing> street(unsigned houses, int alpha = 255) {
    SO<SceneThing> scene(new SceneThing());
    for (unsigned i = 0; i < houses; ++i)
        scene->append(nodeOf({texture(i + 1, alpha).get(), square(10.0 * i).get()}).get());
    return scene;
}

class TexturedTriangleTreeBuildTest : public testing::Test {
protected:
    TexturedTriangleTreeBuildTest() { std::filesystem::create_directories(folder); }
    ~TexturedTriangleTreeBuildTest() override {
        Tree::setDefaultTextureFormat(Tree::TextureFormatRGBA5551);
        Tree::enforceUniqueTextureParameterization(false);
        Tree::setVerbose(false);
        std::filesystem::remove_all(folder);
    }
    std::wstring wide(const std::string & name) const {
        return NBX::StringUtils::Utf8String2WString(folder + "/" + name);
    }
    SO<Tree> built(const SO<SceneThing> & scene, const SO<GLCanvas> & canvas = nullptr,
                   bool createAlphaTextures = false) const {
        return new Tree(scene, CitySquares::distance, createAlphaTextures, wide("paging"), L"", 1.0, 800,
                        90.0, CitySquares::atlasSize, canvas);
    }
    SO<SceneThing> optimized(const SO<NBX::SceneNode> & scene, const SO<GLCanvas> & canvas = nullptr) const {
        return Tree::createOptimizedScene(scene, CitySquares::distance, wide("city.nbx"), true, 1.0, 800,
                                          90.0, CitySquares::atlasSize, canvas);
    }
    std::vector<std::string> files() const { return NBX::File::matchingEntries(folder, "*"); }
    static SO<Tree> treeIn(const SceneThing & scene, unsigned node, unsigned number) {
        const auto * child = dynamic_cast<SceneThing *>(scene.object(node));
        for (unsigned i = 0; child && i < child->objects(); ++i)
            if (auto * tree = dynamic_cast<Tree *>(child->object(i)))
                if (number-- == 0) return SO<Tree>(tree);
        return nullptr;
    }

    const std::string folder = testing::TempDir() + "zmt_treebuild_" + std::to_string(::getpid());
    RecordedReports reports;
};

TEST_F(TexturedTriangleTreeBuildTest, WithoutTexturesThereIsOneShapeAlone) {
    const SO<Tree> tree = built(nodeOf({square(0.0, false).get(), square(20.0, false).get()}));
    EXPECT_FALSE(tree->getRenderTree());
    ASSERT_TRUE(tree->getUntexturedGeometry());
    EXPECT_EQ(12U, tree->getUntexturedGeometry()->data()->vertices());
    EXPECT_EQ(NBX::Bounds({0, 0, 0}, {28, 0, 8}), tree->boundingBox());
    EXPECT_EQ(0, tree->getNumberOfLayers());
    EXPECT_TRUE(files().empty());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TexturedTriangleTreeBuildTest, AnEmptySceneGivesAnEmptyTree) {
    const SO<Tree> tree = built(new SceneThing());
    EXPECT_FALSE(tree->getRenderTree());
    EXPECT_FALSE(tree->getUntexturedGeometry());
    EXPECT_FALSE(tree->boundingBox().isDefined());
    EXPECT_TRUE(files().empty());
}

TEST_F(TexturedTriangleTreeBuildTest, ATexturedSceneBecomesATreeWithItsPagingFile) {
    const SO<SceneThing> scene = street(5);
    scene->append(square(50.0, false).get());
    NBX::BinaryObjectWriter::enableCompression(true);
    const SO<Tree> tree = built(scene);
    EXPECT_FALSE(NBX::BinaryObjectWriter::isCompressionEnabled());
    const SO<RenderTree> nodes = tree->getRenderTree();
    ASSERT_TRUE(nodes);
    EXPECT_EQ(CitySquares::atlasSize, tree->getAtlasSize());
    EXPECT_EQ(1, tree->getNumberOfLayers());
    EXPECT_EQ(Tree::TextureFormatRGBA5551, tree->getLayerFormat(0));
    EXPECT_TRUE(tree->getLayerEnabled(0));
    EXPECT_EQ(wide("paging"), tree->getPagingFile(0));
    EXPECT_EQ((std::vector<std::string>{"paging"}), files());
    EXPECT_EQ(NBX::Bounds({0, 0, 0}, {58, 0, 8}), tree->boundingBox());
    EXPECT_EQ(30, nodes->root()->content.numVertices) << "batched";
    EXPECT_TRUE(nodes->root()->content.vertexData);
    EXPECT_EQ(tree->getRootAtlas(0), nodes->root()->content.texture(0));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TexturedTriangleTreeBuildTest, AStoredTreeIsTheSameWhenItIsRead) {
    const SO<Tree> tree = built(street(5));
    const SO<Tree> read = roundTrip(tree);
    ASSERT_TRUE(read);
    ASSERT_TRUE(read->getRenderTree());
    EXPECT_EQ(tree->getPagingFile(0), read->getPagingFile(0));
    EXPECT_EQ(tree->getAtlasSize(), read->getAtlasSize());
    std::vector<std::pair<RenderTree::NodePointer, RenderTree::NodePointer>> pairs{
        {tree->getRenderTree()->root(), read->getRenderTree()->root()}};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const auto [a, b] = pairs[i];
        ASSERT_TRUE(b);
        EXPECT_EQ(a->content.blockPositions, b->content.blockPositions);
        EXPECT_EQ(a->content.blockSizes, b->content.blockSizes);
        EXPECT_EQ(a->content.originalTexturesBlockPositions, b->content.originalTexturesBlockPositions);
        EXPECT_EQ(a->content.minDistance, b->content.minDistance);
        EXPECT_EQ(a->content.textureScaleFactor, b->content.textureScaleFactor);
        EXPECT_EQ(a->content.bounds, b->content.bounds);
        EXPECT_EQ(a->content.originalGeometry.size(), b->content.originalGeometry.size());
        EXPECT_EQ(a->content.vertexRangeStart, b->content.vertexRangeStart);
        for (unsigned c = 0; tree->getRenderTree()->hasChildren(a) && c < 4; ++c)
            pairs.emplace_back(tree->getRenderTree()->child(a, c), read->getRenderTree()->child(b, c));
    }
    EXPECT_GE(pairs.size(), 5U);
    const auto atlas = NBX::soCast<StreamTexture>(tree->getRootAtlas(0)),
               readAtlas = NBX::soCast<StreamTexture>(read->getRootAtlas(0));
    ASSERT_TRUE(readAtlas);
    EXPECT_EQ(atlas->getMatrix(), readAtlas->getMatrix());
    ASSERT_EQ(atlas->data()->size(), readAtlas->data()->size());
    EXPECT_EQ(0, std::memcmp(atlas->data()->pointer(), readAtlas->data()->pointer(), atlas->data()->size()));
}

TEST_F(TexturedTriangleTreeBuildTest, TheCanvasTakesTheSizeOfAnAtlas) {
    const SO<GLCanvas> canvas(new NBX::PBufferCanvasGL(16, 24));
    built(street(1), canvas);
    EXPECT_EQ(unsigned(CitySquares::atlasSize), canvas->getWidth());
    EXPECT_EQ(unsigned(CitySquares::atlasSize), canvas->getHeight());
}

TEST_F(TexturedTriangleTreeBuildTest, AlphaNeedsACanvasWithAlpha) {
    const SO<GLCanvas> canvas(
        new NBX::PBufferCanvasGL(64, 64, GLCanvas::COLOR_BUFFER | GLCanvas::DEPTH_BUFFER));
    ASSERT_FALSE(canvas->hasProperty(GLCanvas::ALPHA_BUFFER));
    Tree::setDefaultTextureFormat(Tree::TextureFormatRGBA8);
    const auto alphaOf = [](const SO<Tree> & tree) {
        return int(static_cast<const std::uint8_t *>(
            NBX::soCast<StreamTexture>(tree->getRootAtlas(0))->data()->pointer())[(24 * 64 + 24) * 4 + 3]);
    };
    EXPECT_EQ(255, alphaOf(built(street(1, 90), canvas)));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_EQ(255, alphaOf(built(street(1, 90), canvas, true))) << "the build goes on";
    EXPECT_EQ(1U,
              reports.count(0, L"!createAlphaTextures || canvas->hasProperty(NBX::GLCanvas::ALPHA_BUFFER)",
                            L"alpha buffer missing in canvas"))
        << reports;
    EXPECT_EQ(90, alphaOf(built(street(1, 90), nullptr, true)));
    reports.clear();
    optimized(street(1, 90), canvas);
    EXPECT_EQ(1U, reports.size()) << "what can be seen through needs it alone: " << reports;
}

TEST_F(TexturedTriangleTreeBuildTest, StepsAreToldOnDemand) {
    const auto told = [&] {
        testing::internal::CaptureStdout();
        built(street(2));
        return testing::internal::GetCapturedStdout();
    };
    EXPECT_EQ("", told());
    Tree::setVerbose(true);
    const std::string text = told();
    std::size_t at = 0;
    for (const char * step :
         {"\tCollecting triangles and textures...\n", "\tValidating meshes...\n",
          "\tCreating atlas tree...\n", "\tComputing tree...\n", "\tComputing render tree...\n",
          "\r\t\tNode: ", "\tBatching geometry...\n", "\tDone.\n"}) {
        const std::size_t found = text.find(step, at);
        ASSERT_NE(std::string::npos, found) << step << text;
        at = found + 1;
    }
}

TEST_F(TexturedTriangleTreeBuildTest, ACancelLeavesAnEmptyTree) {
    const CancelingDisplay display;
    const SO<SceneThing> scene = street(3);
    scene->append(square(50.0, false).get());
    const SO<Tree> tree = built(scene);
    EXPECT_FALSE(tree->getRenderTree());
    EXPECT_FALSE(tree->getUntexturedGeometry());
    EXPECT_EQ(0, tree->getNumberOfLayers());
    EXPECT_FALSE(optimized(street(3)));
    EXPECT_FALSE(optimized(street(3, 90))) << "behind an opaque part of nothing";
    EXPECT_TRUE(files().empty());
}

/// Lets one tree be built.
class CancelingLater : public NBX::ProgressDisplay {
public:
    CancelingLater() : before_(NBX::Progress::setDisplay(this)) {}
    CancelingLater(const CancelingLater &) = delete;
    CancelingLater & operator=(const CancelingLater &) = delete;
    ~CancelingLater() override { NBX::Progress::setDisplay(before_); }

    void begin(const NBX::Progress & progress) override { trees += progress.title() == "building textures"; }
    bool update(const NBX::Progress &) override { return trees < 2; }
    void end(const NBX::Progress &) override {}

    int trees = 0;

private:
    NBX::ProgressDisplay * before_;
};

/// Cancels what has a title.
class CancelingByTitle : public NBX::ProgressDisplay {
public:
    explicit CancelingByTitle(const std::string & title)
        : title_(title), before_(NBX::Progress::setDisplay(this)) {}
    CancelingByTitle(const CancelingByTitle &) = delete;
    CancelingByTitle & operator=(const CancelingByTitle &) = delete;
    ~CancelingByTitle() override { NBX::Progress::setDisplay(before_); }

    void begin(const NBX::Progress &) override {}
    bool update(const NBX::Progress & progress) override {
        met = met || progress.title() == title_;
        return progress.title() != title_;
    }
    void end(const NBX::Progress &) override {}

    bool met = false;

private:
    const std::string title_;
    NBX::ProgressDisplay * before_;
};

TEST_F(TexturedTriangleTreeBuildTest, EveryStepCanBeCancelled) {
    for (const char * title : {"joining models", "collecting triangles", "sorting triangles",
                               "dividing triangles", "building textures"}) {
        CancelingByTitle display(title);
        EXPECT_FALSE(optimized(street(5))) << title;
        EXPECT_TRUE(display.met) << title;
        EXPECT_TRUE(files().empty()) << title;
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

/// So that a process that is killed leaves none, and two that build the same city do not mix.
TEST_F(TexturedTriangleTreeBuildTest, HeldFilesGetTheirNamesTogetherAndMayGetOthers) {
    const SO<SceneThing> scene = street(5);
    scene->append(nodeOf({texture(9, 100).get(), square(60.0).get()}).get());
    {
        const HeldPagingFiles held;
        EXPECT_EQ(HeldPagingFiles::current(), &held);
        EXPECT_TRUE(optimized(scene));
        EXPECT_TRUE(files().empty());
    }
    EXPECT_EQ(HeldPagingFiles::current(), nullptr);
    EXPECT_TRUE(files().empty()) << "they are given up";
    HeldPagingFiles held;
    EXPECT_TRUE(optimized(scene));
    const auto fill = held.fill(folder + "/city.opaque.nbx");
    // A square of 32 by 32 texels with 8 around it in each.
    EXPECT_GT(fill.used, 5.0 * 48 * 48);
    EXPECT_EQ(fill.used / fill.all, 48.0 * 48 / (CitySquares::atlasSize * CitySquares::atlasSize));
    EXPECT_EQ(held.fill(folder + "/city.trans.nbx").used, 48.0 * 48);
    EXPECT_EQ(held.fill("else").all, 0.0);
    EXPECT_TRUE(held.name([](const std::string & path) { return path + ".7"; }));
    EXPECT_EQ(files(), (std::vector<std::string>{"city.opaque.nbx.7", "city.trans.nbx.7"}));
    EXPECT_TRUE(optimized(scene));
    EXPECT_THROW((void)held.name([](const std::string & path) { return path + "/else"; }), NBX::IOException);
    const auto elsewhere = [&](const std::string & path) {
        return folder + "/../" + NBX::File::fileName(path) + ".elsewhere";
    };
    EXPECT_THROW((void)held.name(elsewhere), NBX::IOException);
    EXPECT_FALSE(NBX::File::exists(elsewhere("city.opaque.nbx")));
    EXPECT_EQ(files().size(), 2U);
    reports.clear();
}

/// Of builds at the same time, also where the file system knows no locks.
TEST_F(TexturedTriangleTreeBuildTest, HeldFilesNeverTakeTheNamesOfOthers) {
    const SO<SceneThing> scene = street(5);
    scene->append(nodeOf({texture(9, 100).get(), square(60.0).get()}).get());
    const auto numbered = [](const char * number) {
        return [number](const std::string & path) { return path + number; };
    };
    for (const char * other : {"city.opaque.nbx.1", "city.trans.nbx.2"})
        NBX::File(folder + "/" + other, NBX::WM_Create).write("other", 5);
    HeldPagingFiles held;
    EXPECT_TRUE(optimized(scene));
    EXPECT_FALSE(held.name(numbered(".1")));
    EXPECT_FALSE(held.name(numbered(".2")));
    EXPECT_EQ(files(), (std::vector<std::string>{"city.opaque.nbx.1", "city.trans.nbx.2"}));
    EXPECT_TRUE(held.name(numbered(".3"))) << "they are still there";
    EXPECT_EQ(files(), (std::vector<std::string>{"city.opaque.nbx.1", "city.opaque.nbx.3", "city.trans.nbx.2",
                                                 "city.trans.nbx.3"}));
    for (const char * other : {"city.opaque.nbx.1", "city.trans.nbx.2"})
        EXPECT_EQ(NBX::File(folder + "/" + other).size(), 5U) << other;
    EXPECT_GT(NBX::File(folder + "/city.opaque.nbx.3").size(), 100U);
}

TEST_F(TexturedTriangleTreeBuildTest, ACancelOfTheSecondTreeLeavesNoneOfTheFirst) {
    const SO<SceneThing> scene =
        nodeOf({street(2).get(), nodeOf({texture(7, 90).get(), square(40.0).get()}).get()});
    const CancelingLater display;
    EXPECT_FALSE(optimized(SO<NBX::SceneNode>(scene.get())));
    EXPECT_EQ(2, display.trees);
    EXPECT_TRUE(files().empty());
}

TEST_F(TexturedTriangleTreeBuildTest, AFailureOfTheSecondTreeLeavesNoneOfTheFirst) {
    const SO<SceneThing> scene = nodeOf({street(1).get(), street(20, 90).get()});
    const SO<GLCanvas> canvas(new NBX::PBufferCanvasGL(
        64, 64, GLCanvas::COLOR_BUFFER | GLCanvas::DEPTH_BUFFER | GLCanvas::ALPHA_BUFFER));
    const FileSizeLimit fullDisk(50'000);
    EXPECT_THROW(optimized(SO<NBX::SceneNode>(scene.get()), canvas), NBX::IOException);
    EXPECT_TRUE(files().empty()) << files().front();
}

/// Without textures the opaque tree has no file, whatever has that name.
TEST_F(TexturedTriangleTreeBuildTest, ACancelLeavesTheFilesOfOthers) {
    NBX::File(folder + "/city.opaque.nbx", NBX::WM_Create).write("old", 3);
    const SO<SceneThing> scene = nodeOf({square(0.0, false).get(), street(1, 90).get()});
    const CancelingDisplay display;
    EXPECT_FALSE(optimized(SO<NBX::SceneNode>(scene.get())));
    EXPECT_EQ((std::vector<std::string>{"city.opaque.nbx"}), files());
    EXPECT_TRUE(reports.empty()) << reports;
}

/// As large an atlas as the canvas is wide.
TEST_F(TexturedTriangleTreeBuildTest, ATreeMayHaveFixedResolution) {
    const SO<GLCanvas> canvas(new NBX::PBufferCanvasGL(128, 64));
    const SO<Tree> tree = newTexturedTriangleTree(street(1), false, wide("paging"), canvas);
    ASSERT_TRUE(tree);
    EXPECT_EQ(128, tree->getAtlasSize());
    EXPECT_EQ(128U, canvas->getHeight());
    EXPECT_EQ(100.0, tree->getRenderTree()->root()->content.minDistance);
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_FALSE(newTexturedTriangleTree(street(1), false, wide("paging"), nullptr));
    EXPECT_EQ(1U, reports.count(0, L"canvas", L"no canvas")) << reports;
}

TEST_F(TexturedTriangleTreeBuildTest, AnOptimizedSceneHasAnOpaqueAndATransparentTree) {
    const SO<SceneThing> scene =
        nodeOf({street(2).get(), nodeOf({texture(7, 90).get(), square(40.0).get()}).get()});
    const SO<SceneThing> result = optimized(SO<NBX::SceneNode>(scene.get()));
    ASSERT_TRUE(result);
    EXPECT_EQ((std::vector<std::string>{"city.opaque.nbx", "city.trans.nbx"}), files());
    const SO<Tree> opaque = treeIn(*result, 1, 0), transparent = treeIn(*result, 1, 1);
    ASSERT_TRUE(opaque && transparent);
    EXPECT_EQ(transparent, treeIn(*result, 2, 0)) << "again, blended";
    EXPECT_EQ(NBX::Bounds({0, 0, 0}, {18, 0, 8}), opaque->boundingBox());
    EXPECT_EQ(NBX::Bounds({40, 0, 0}, {48, 0, 8}), transparent->boundingBox());
    EXPECT_EQ(wide("city.opaque.nbx"), opaque->getPagingFile(0));
    EXPECT_EQ(wide("city.trans.nbx"), transparent->getPagingFile(0));
    EXPECT_EQ(2U, scene->objects()) << "the scene stays";
}

TEST_F(TexturedTriangleTreeBuildTest, WhatIsSeenThroughHasFullAlphaInAllFormats) {
    const SO<SceneThing> scene =
        nodeOf({street(2).get(), nodeOf({texture(7, 90).get(), square(40.0).get()}).get()});
    for (int format = 0; format <= Tree::TextureFormatJPEG; ++format) {
        Tree::setDefaultTextureFormat(Tree::TextureFormat(format));
        const SO<SceneThing> result = optimized(SO<NBX::SceneNode>(scene.get()));
        ASSERT_TRUE(result) << format;
        EXPECT_EQ(format, int(treeIn(*result, 1, 0)->getLayerFormat(0)));
        EXPECT_EQ(Tree::TextureFormatRGBA8, treeIn(*result, 1, 1)->getLayerFormat(0));
        EXPECT_EQ(format, int(Tree::getDefaultTextureFormat())) << "it stays";
        EXPECT_EQ(format == Tree::TextureFormatRGBA8 ? L"" : L"texture format", reports.last().condition);
        EXPECT_LE(reports.size(), 1U) << reports;
        reports.clear();
    }
    Tree::setDefaultTextureFormat(Tree::TextureFormatDXT1);
    EXPECT_TRUE(optimized(street(2)));
    EXPECT_TRUE(reports.empty()) << "nothing can be seen through: " << reports;
    EXPECT_TRUE(optimized(
        nodeOf({new NBX::ColorAttribute(NBX::Color(1.0F, 1.0F, 1.0F, 0.4F)), square(0.0, false).get()})));
    EXPECT_TRUE(reports.empty()) << "it has no textures: " << reports;
}

TEST_F(TexturedTriangleTreeBuildTest, AnOptimizedSceneCanBeStored) {
    const SO<SceneThing> scene =
        nodeOf({street(2).get(), nodeOf({texture(7, 90).get(), square(40.0).get()}).get()});
    Tree::setDefaultTextureFormat(Tree::TextureFormatRGBA8);
    const SO<SceneThing> result = optimized(SO<NBX::SceneNode>(scene.get()));
    const SO<SceneThing> read = roundTrip(result);
    ASSERT_TRUE(read);
    EXPECT_TRUE(reports.empty()) << reports;
    std::vector<std::pair<SceneThing *, SceneThing *>> pairs{{result.get(), read.get()}};
    unsigned compared = 0;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const auto [a, b] = pairs[i];
        ASSERT_EQ(a->objects(), b->objects());
        for (unsigned k = 0; k < a->objects(); ++k) {
            EXPECT_EQ(a->object(k)->classInfoNBX(), b->object(k)->classInfoNBX());
            ++compared;
            if (auto * child = dynamic_cast<SceneThing *>(a->object(k)))
                pairs.emplace_back(child, dynamic_cast<SceneThing *>(b->object(k)));
        }
    }
    EXPECT_EQ(3U + 5 + 5, compared);
    EXPECT_EQ(treeIn(*read, 1, 1), treeIn(*read, 2, 0)) << "one tree, drawn twice";
}

/// Files as they come with models, each on a square of its own.
TEST_F(TexturedTriangleTreeBuildTest, TexturesOfAllKindsGiveATree) {
    const auto write = [this](const std::string & name, const std::vector<std::uint8_t> & bytes) {
        NBX::File(folder + "/" + name, NBX::WM_Create).write(bytes.data(), bytes.size());
        return folder + "/" + name;
    };
    const auto encoded = [](const SO<Image> & image) {
        const auto data = NBX::ImageWriter::encode(image.get(), "x.png");
        const auto * bytes = static_cast<const std::uint8_t *>(data->pointer());
        return std::vector<std::uint8_t>(bytes, bytes + data->size());
    };
    std::vector<std::uint8_t> damaged = encoded(CitySquares::ramp(1)), huge = damaged;
    damaged.resize(damaged.size() / 2);
    for (const std::size_t side : {16U, 20U}) // of the first chunk
        for (unsigned i = 0; i < 4; ++i)
            huge[side + i] = std::uint8_t(30000U >> (24 - 8 * i));
    const std::vector<std::string> files = {
        write("one.png", encoded(new NBX::MemoryImage(1, 1, NBX::LS_RGB))),
        write("grey.png", encoded(CitySquares::ramp(1, NBX::LS_Luminance))),
        write("deep.png", encoded(new NBX::MemoryImage(8, 8, NBX::LS_RGB, Image::UInt16))),
        write("odd.png", encoded(new NBX::MemoryImage(256, 187, NBX::LS_RGB))),
        write("damaged.png", damaged),
        write("huge.png", huge),
        folder + "/gone.png",
    };
    std::filesystem::create_directory(folder + "/out");
    for (int format = 0; format <= Tree::TextureFormatJPEG; ++format) {
        const SO<SceneThing> scene(new SceneThing());
        for (std::size_t i = 0; i < files.size(); ++i) {
            const SO<NBX::ImageTexture2DGL> texture(
                new NBX::ImageTexture2DGL(new NBX::EncodedImage(files[i])));
            scene->append(nodeOf({texture.get(), square(10.0 * double(i)).get()}).get());
        }
        Tree::setDefaultTextureFormat(Tree::TextureFormat(format));
        const SO<Tree> tree(new Tree(scene, CitySquares::distance, false, wide("out/paging"), L"", 1.0, 800,
                                     90.0, CitySquares::atlasSize, nullptr));
        ASSERT_TRUE(tree->getRenderTree()) << format;
        ASSERT_TRUE(tree->getUntexturedGeometry()) << "two are known to be none before they are looked at";
        EXPECT_EQ(12U, tree->getUntexturedGeometry()->data()->vertices());
        EXPECT_EQ(30, tree->getRenderTree()->root()->content.numVertices);
        bool isDamageTold = false, isLossTold = false;
        for (const NBX::ErrorReport & report : reports.reports()) {
            isDamageTold = isDamageTold || report.message.find(L"damaged.png") != std::wstring::npos;
            isLossTold = isLossTold || report.message.find(L"gone.png") != std::wstring::npos;
        }
        EXPECT_TRUE(isDamageTold && isLossTold) << reports;
        reports.clear();
    }
}

TEST_F(TexturedTriangleTreeBuildTest, OfLevelsTheFirstCounts) {
    const SO<NBX::LODNode> house(new NBX::LODNode());
    house->append(nodeOf({texture(1).get(), square(0.0).get()}).get(), 50.0);
    house->append(nodeOf({texture(2).get(), square(500.0).get()}).get(), 5000.0);
    const SO<SceneThing> result = optimized(SO<NBX::SceneNode>(house.get()));
    ASSERT_TRUE(result);
    EXPECT_EQ(NBX::Bounds({0, 0, 0}, {8, 0, 8}), treeIn(*result, 1, 0)->boundingBox());
    EXPECT_EQ(2U, house->lodNodes());
}

TEST_F(TexturedTriangleTreeBuildTest, TheSettingOfTheFirstUnitIsATexture) {
    const SO<NBX::ImageTexture2DGL> own = texture(9), other = texture(1);
    Tree::setDefaultTextureFormat(Tree::TextureFormatRGBA8);
    const auto blueOf = [this](const SO<SceneThing> & node) {
        const SO<SceneThing> result = optimized(SO<NBX::SceneNode>(node.get()));
        const auto atlas = NBX::soCast<StreamTexture>(treeIn(*result, 1, 0)->getRootAtlas(0));
        return int(static_cast<const std::uint8_t *>(atlas->data()->pointer())[(24 * 64 + 24) * 4]);
    };
    for (const bool isFirst : {true, false}) {
        const SO<NBX::TextureUnitSettingGL> first(new NBX::TextureUnitSettingGL(0, own.get())),
            second(new NBX::TextureUnitSettingGL(1, other.get()));
        const SO<SceneThing> node = nodeOf({isFirst ? first.get() : second.get(), other.get(),
                                            isFirst ? second.get() : first.get(), square(0.0).get()});
        EXPECT_NEAR(0.9 * 255.0, blueOf(node), 1.0);
        EXPECT_EQ(4U, node->objects());
    }
    EXPECT_NEAR(0.1 * 255.0,
                blueOf(nodeOf({new NBX::TextureUnitSettingGL(1, own.get()), other.get(), square(0.0).get()})),
                1.0)
        << "that of another unit is none";
}

TEST_F(TexturedTriangleTreeBuildTest, TrianglesMayHaveTexelsOfTheirOwn) {
    Tree::enforceUniqueTextureParameterization(true);
    Tree::setDefaultTextureFormat(Tree::TextureFormatRGBA8);
    const SO<Tree> tree = built(street(3));
    ASSERT_TRUE(tree->getRenderTree());
    const auto atlas = NBX::soCast<StreamTexture>(tree->getRootAtlas(0));
    ASSERT_TRUE(atlas);
    const auto * bgra = static_cast<const std::uint8_t *>(atlas->data()->pointer());
    std::map<int, unsigned> texelsOf; // by the blue that tells the texture, in tenths
    for (unsigned i = 0; i < unsigned(atlas->width() * atlas->height()); ++i)
        ++texelsOf[int(std::lround(bgra[4 * i] / 25.5))];
    for (int number = 1; number <= 3; ++number)
        EXPECT_GT(texelsOf[number], 30U) << number;
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TexturedTriangleTreeBuildTest, NumbersThatAreNoViewAreReported) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    TexturedTriangleTreeSettings good;
    good.pagingFile = wide("paging");
    good.atlasSize = CitySquares::atlasSize;
    std::vector<TexturedTriangleTreeSettings> wrong(11, good);
    wrong[0].distance = 0.0;
    wrong[1].distance = nan;
    wrong[2].quality = -1.0;
    wrong[3].quality = nan;
    wrong[4].screenSize = 0;
    wrong[5].fieldOfView = 0.0;
    wrong[6].fieldOfView = 180.0;
    wrong[7].fieldOfView = nan;
    wrong[8].atlasSize = 0;
    wrong[9].atlasSize = -64;
    wrong[10].atlasSize = Tree::s_maxAtlasSize + 1;
    SO<GLCanvas> canvas;
    for (const TexturedTriangleTreeSettings & settings : wrong) {
        const SO<Tree> tree(new Tree());
        EXPECT_FALSE(buildTexturedTriangleTree(*tree, street(1), settings, canvas));
        EXPECT_EQ(1U, reports.size()) << reports;
        reports.clear();
    }
    EXPECT_FALSE(canvas);
    EXPECT_TRUE(files().empty());
    const SO<Tree> tree(new Tree());
    EXPECT_FALSE(buildTexturedTriangleTree(*tree, nullptr, good, canvas));
    EXPECT_EQ(1U, reports.size()) << reports;
    EXPECT_TRUE(buildTexturedTriangleTree(*tree, street(1), good, canvas));
    EXPECT_TRUE(canvas);
}

TEST_F(TexturedTriangleTreeBuildTest, WithoutASceneThereIsNothing) {
    EXPECT_FALSE(optimized(nullptr));
    EXPECT_EQ(1U, reports.count(0, L"scene", L"no scene")) << reports;
}

} // namespace
