#include "core/texturedtriangles/texturedtriangletree_impl/trianglecollector.h"

#include <gtest/gtest.h>

#include <fstream>
#include <limits>

#include <nbx/container/sequence/constantiterator.h>
#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/image/encodedimage.h>
#include <nbx/image/pngwriter.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/shapematerial.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/shape/lineset.h>
#include <nbx/scene/view/translation.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

#include "core/texturedtriangles/modelnumber.h"
#include "core/texturedtriangles/texturedtriangletree_impl/meshvalidation.h"
#include "trianglemeshes.h"

namespace {

using namespace NBX;
using namespace TriangleMeshes;
using ZMT::CORE::TextureWrapper;
using ZMT::CORE::TriangleCollector;

constexpr double s_nan = std::numeric_limits<double>::quiet_NaN();

class TriangleCollectorTest : public ::testing::Test {
protected:
    Meshes collect(double maxTextureRepeat = 0.0, bool unique = false, bool splitRepeats = true) {
        return TriangleCollector::collect(scene, untextured, maxTextureRepeat, unique, splitRepeats);
    }

    SO<SceneThing> node(const std::vector<RenderObj *> & objects) {
        const SO<SceneThing> result(new SceneThing(scene.get()));
        for (RenderObj * object : objects)
            result->append(object);
        return result;
    }

    std::string imageFile(int width = 8, int height = 4) {
        const std::string path = File::temporaryFileName("collector-") + ".png";
        const SO<MemoryDataResource> data =
            PNGWriter().write(SO<Image>(new MemoryImage(width, height, LS_RGB)).get());
        std::ofstream(path, std::ios::binary)
            .write(static_cast<const char *>(data->pointer()), std::streamsize(data->size()));
        return path;
    }

    static SO<ImageTexture2DGL> texture() {
        return new ImageTexture2DGL(SO<Image>(new MemoryImage(4, 4, LS_RGB)));
    }
    static SO<ImageTexture2DGL> fileTexture(const std::string & path) {
        return new ImageTexture2DGL(SO<Image>(new EncodedImage(path)));
    }
    /// A triangle of area 0.5 with its texture coordinates shifted by `shift`.
    static SO<PolygonSet> textured(const V & at = {}, const V & shift = {}) {
        return setOf({at, at + V(1, 0, 0), at + V(0, 1, 0)}, {shift, shift + V(1, 0, 0), shift + V(0, 1, 0)});
    }
    static SO<PolygonSet> plain(const V & at = {}) { return setOf({at, at + V(1, 0, 0), at + V(0, 1, 0)}); }

    TemporaryFolder folder;
    RecordedReports reports;
    SO<SceneThing> scene{new SceneThing()};
    SO<PolygonSet> untextured;
};

/// Split triangles and validated meshes keep them, and vertices without a model say so.
TEST_F(TriangleCollectorTest, VerticesKeepTheNumbersOfTheirModels) {
    using ZMT::CORE::ModelNumber;
    const SO<ImageTexture2DGL> image = texture();
    node({new ModelNumber(7), image.get(), textured(V(70, 0, 0)).get()});
    node({new ModelNumber(3), image.get(), textured(V(30, 0, 0)).get(), plain(V(31, 0, 0)).get()});
    node({image.get(), textured(V(-10, 0, 0)).get()});
    node({new ModelNumber(5), plain(V(50, 0, 0)).get()});
    const Meshes meshes = ZMT::CORE::MeshValidation::validate(collect(0.4));
    unsigned count = 0;
    const auto check = [&](const PolygonSet & set) {
        const Vectors vertices = valuesOf(set.newVertexIterator());
        const Vectors models = valuesOf(set.newTextureIterator(ModelNumber::unit));
        ASSERT_EQ(vertices.size(), models.size());
        for (std::size_t i = 0; i < vertices.size(); ++i)
            EXPECT_EQ(models[i].x, vertices[i].x < 0.0 ? -1.0 : std::floor(vertices[i].x / 10.0));
        count += unsigned(vertices.size());
    };
    ASSERT_TRUE(untextured);
    check(*untextured);
    EXPECT_EQ(count, 6U);
    for (const Mesh & mesh : *meshes)
        check(*mesh.geometry);
    EXPECT_GT(count, 6U + 9U) << "triangles were split";
    EXPECT_EQ(collect()->get(0).geometry->newTextureIterator(ModelNumber::unit)->size(), 9U);
}

TEST_F(TriangleCollectorTest, WithoutModelsThereAreNoNumbers) {
    const SO<ImageTexture2DGL> image = texture();
    node({image.get(), textured().get()});
    EXPECT_FALSE(collect()->get(0).geometry->newTextureIterator(ZMT::CORE::ModelNumber::unit));
}

TEST_F(TriangleCollectorTest, ASceneWithoutTexturesIsOneUntexturedSet) {
    node({new Translation(V(5, 0, 0)), new ColorAttribute(Color::red), plain().get()});
    scene->append(new Box(V(0, 0, 0), V(1, 1, 1)));
    const Meshes meshes = collect();
    ASSERT_TRUE(meshes);
    EXPECT_TRUE(meshes->isEmpty());
    ASSERT_TRUE(untextured);
    EXPECT_EQ(untextured->triangles(), 13U);
    EXPECT_FALSE(untextured->newIndexIterator());
    EXPECT_FALSE(untextured->newNormalIterator());
    EXPECT_FALSE(untextured->newTextureIterator(0));
    EXPECT_EQ(untextured->newVertexIterator()->get(1), V(6, 0, 0)) << "in the frame of the scene";
    EXPECT_EQ(untextured->newColorIterator()->get(0), Color::red);
    EXPECT_EQ(untextured->newColorIterator()->get(3), Color::white);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TriangleCollectorTest, AnEmptySceneGivesNothing) {
    untextured = plain();
    EXPECT_TRUE(collect()->isEmpty());
    EXPECT_FALSE(untextured);
    scene = nullptr;
    EXPECT_TRUE(collect()->isEmpty());
    EXPECT_EQ(reports.count(0, L"scene", L"no scene"), 1U) << reports;
}

TEST_F(TriangleCollectorTest, EachTextureHasOneMeshInTheOrderOfMeeting) {
    const SO<ImageTexture2DGL> a = texture(), b = texture();
    node({b.get(), textured(V(0, 0, 0)).get()});
    node({plain().get()});
    node({a.get(), textured(V(1, 0, 0)).get()});
    node({b.get(), textured(V(2, 0, 0)).get()});
    const Meshes meshes = collect();
    ASSERT_EQ(meshes->size(), 2U);
    EXPECT_EQ(meshes->get(0).texture->getTexture(), b);
    EXPECT_EQ(meshes->get(1).texture->getTexture(), a);
    const SO<PolygonSet> first = meshes->get(0).geometry;
    ASSERT_EQ(first->triangles(), 2U);
    EXPECT_EQ(first->newVertexIterator()->get(3), V(2, 0, 0));
    EXPECT_EQ(first->newTextureIterator(0)->get(4), V(1, 0, 0));
    EXPECT_EQ(first->newColorIterator()->size(), 6U);
    ASSERT_TRUE(untextured);
    EXPECT_EQ(untextured->triangles(), 1U);
}

TEST_F(TriangleCollectorTest, ObjectsOfTheSameFileEndInOneMesh) {
    const std::string path = imageFile(), other = imageFile();
    node({fileTexture(path).get(), textured().get()});
    node({fileTexture(other).get(), textured().get()});
    node({fileTexture(path).get(), textured().get()});
    node({new TextureWrapper(StringUtils::Utf8String2WString(path), TextureGL::WM_Repeat,
                             TextureGL::WM_Repeat),
          textured().get()});
    const Meshes meshes = collect();
    ASSERT_EQ(meshes->size(), 2U);
    EXPECT_EQ(meshes->get(0).geometry->triangles(), 3U);
    EXPECT_EQ(meshes->get(0).texture->getFileName(), StringUtils::Utf8String2WString(path));
    EXPECT_TRUE(meshes->get(0).texture->isExtern());
    EXPECT_EQ(meshes->get(0).texture->getWidth(), 8);
    EXPECT_EQ(meshes->get(0).texture->getHeight(), 4);
    EXPECT_EQ(meshes->get(0).texture->getTexture()->getImage()->width(), 8);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TriangleCollectorTest, ANearerTextureDisplacesAnother) {
    const SO<ImageTexture2DGL> outer = texture();
    const SO<TextureWrapper> inner = wrapper();
    scene->append(outer.get());
    node({inner.get(), textured().get()});
    node({textured().get()});
    const Meshes meshes = collect();
    ASSERT_EQ(meshes->size(), 2U);
    EXPECT_EQ(meshes->get(0).texture, inner);
    EXPECT_EQ(meshes->get(1).texture->getTexture(), outer);
}

TEST_F(TriangleCollectorTest, AWrapperAndItsTextureAreOne) {
    const SO<ImageTexture2DGL> shared = texture();
    node({shared.get(), textured().get()});
    node({new TextureWrapper(shared), textured().get()});
    EXPECT_EQ(collect()->size(), 1U);
}

/// One that repeats and one that ends at its edges: triangles of the latter would be moved by whole repeats.
TEST_F(TriangleCollectorTest, OneFileWithOtherWrapModesIsAnotherTexture) {
    const std::string path = imageFile();
    const V shift(3.0, 3.0, 0.0);
    const auto wide = NBX::StringUtils::Utf8String2WString(path);
    const SO<ImageTexture2DGL> clamped = fileTexture(path), mirrored = fileTexture(path);
    clamped->setWrap(TextureGL::WM_ClampToEdge);
    mirrored->setWrapT(TextureGL::WM_MirroredRepeat);
    node({fileTexture(path).get(), textured(V(), shift).get()});
    node({clamped.get(), textured(V(), shift).get()});
    node({mirrored.get(), textured(V(), shift).get()});
    node({new TextureWrapper(wide, TextureGL::WM_ClampToEdge, TextureGL::WM_ClampToEdge),
          textured(V(1, 0, 0), shift).get()});
    node({new TextureWrapper(wide, TextureGL::WM_Repeat, TextureGL::WM_ClampToEdge),
          textured(V(), shift).get()});
    const Meshes meshes = collect();
    ASSERT_EQ(meshes->size(), 4U);
    EXPECT_EQ(meshes->get(1).geometry->triangles(), 2U);
    EXPECT_EQ(meshes->get(1).texture->getWrapS(), TextureGL::WM_ClampToEdge);
    const V expected[] = {V(), shift, V(0, 1, 0), V(0, 3, 0)};
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(meshes->get(i).geometry->newTextureIterator(0)->get(0), expected[i]) << i;
}

TEST_F(TriangleCollectorTest, SetsWithoutCoordinatesAreUntextured) {
    node({texture().get(), plain().get()});
    node({texture().get(), setOf({}, {}).get()});
    EXPECT_TRUE(collect()->isEmpty());
    ASSERT_TRUE(untextured);
    EXPECT_EQ(untextured->triangles(), 1U);
}

TEST_F(TriangleCollectorTest, AllKindsOfPolygonsBecomeTriangles) {
    const SO<PolygonSet> quads(
        new PolygonSet(PolygonSet::PT_Quads, sequence({V(0, 0, 0), V(1, 0, 0), V(1, 1, 0), V(0, 1, 0)})));
    const SO<PolygonSet> indexed(new PolygonSet(PolygonSet::PT_Triangles,
                                                sequence({V(0, 0, 0), V(1, 0, 0), V(0, 1, 0), V(9, 9, 9)}),
                                                new Array<unsigned>(std::vector<unsigned>{2, 1, 0})));
    indexed->setColorIterator(new Array<Color>({Color::red, Color::green, Color::blue, Color::gold}));
    scene->append(quads.get());
    scene->append(indexed.get());
    collect();
    ASSERT_TRUE(untextured);
    EXPECT_EQ(untextured->triangles(), 3U);
    EXPECT_EQ(untextured->newVertexIterator()->get(6), V(0, 1, 0));
    EXPECT_EQ(untextured->newColorIterator()->get(6), Color::blue);
    EXPECT_EQ(untextured->newColorIterator()->get(8), Color::red);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TriangleCollectorTest, VerticesWithoutColorsHaveTheOneInForce) {
    const Color glass(0.2F, 0.4F, 0.6F, 0.5F);
    const SO<ImageTexture2DGL> shared = texture();
    node({new ShapeMaterial(glass), plain().get()});
    node({new ShapeMaterial(glass), new ColorAttribute(Color::green), plain().get()});
    node({shared.get(), new ShapeMaterial(glass), textured().get()});
    node({shared.get(), new ColorAttribute(Color::green), textured().get()});
    const Meshes meshes = collect();
    EXPECT_EQ(untextured->newColorIterator()->get(0), glass);
    EXPECT_EQ(untextured->newColorIterator()->get(3), Color::green);
    const SO<PolygonSet::Colors> colors = meshes->get(0).geometry->newColorIterator();
    EXPECT_EQ(colors->get(0), Color(1.0F, 1.0F, 1.0F, 0.5F)) << "a material lets the texture through";
    EXPECT_EQ(colors->get(3), Color::green);
}

TEST_F(TriangleCollectorTest, SequencesThatDoNotFitAreReportedAndLeftOut) {
    const SO<PolygonSet> set = textured();
    set->setColorIterator(new Array<Color>({Color::red}));
    set->setTextureIterator(sequence({V()}));
    node({texture().get(), set.get()});
    EXPECT_TRUE(collect()->isEmpty());
    EXPECT_EQ(reports.count(0, L"colors->size()==vertices->size()", L"invalid polygon set"), 1U) << reports;
    EXPECT_EQ(reports.count(0, L"texCoords && texCoords->size()==vertices->size()", L"invalid polygon set"),
              1U)
        << reports;
    ASSERT_TRUE(untextured);
    EXPECT_EQ(untextured->newColorIterator()->get(0), Color::white);
}

TEST_F(TriangleCollectorTest, CoordinatesAreMovedByWholeRepeats) {
    node({texture().get(), textured(V(), V(7.25, -3.5, 0)).get()});
    EXPECT_EQ(valuesOf(collect()->get(0).geometry->newTextureIterator(0)),
              (Vectors{V(0.25, -0.5, 0), V(1.25, -0.5, 0), V(0.25, 0.5, 0)}))
        << "cut to whole numbers, not rounded down";
    EXPECT_EQ(collect(0.0, false, false)->get(0).geometry->newTextureIterator(0)->get(0), V(7.25, -3.5, 0));
}

TEST_F(TriangleCollectorTest, CoordinatesStayWhereTheTextureEndsAtItsEdge) {
    const SO<Image> image(new MemoryImage(4, 4, LS_RGB));
    node({new ImageTexture2DGL(image, TextureGL::WM_ClampToEdge, TextureGL::WM_MirroredRepeat),
          textured(V(), V(7.25, 7.25, 0)).get()});
    EXPECT_EQ(collect()->get(0).geometry->newTextureIterator(0)->get(0), V(7.25, 1.25, 0))
        << "a mirrored texture repeats every two units";
}

TEST_F(TriangleCollectorTest, TheMatrixOfATextureWithAFileGoesIntoTheCoordinates) {
    const SO<ImageTexture2DGL> inFile = fileTexture(imageFile()), inMemory = texture();
    const Matrix4x4Base<double> half = Matrix4x4Base<double>::scaling(V(0.5, 0.5, 1));
    inFile->setMatrix(half);
    inMemory->setMatrix(half);
    node({inFile.get(), textured().get()});
    node({inMemory.get(), textured().get()});
    const Meshes meshes = collect();
    EXPECT_EQ(meshes->get(0).geometry->newTextureIterator(0)->get(1), V(0.5, 0, 0));
    EXPECT_EQ(meshes->get(1).geometry->newTextureIterator(0)->get(1), V(1, 0, 0))
        << "the texture keeps its own";
}

TEST_F(TriangleCollectorTest, ALimitOfZeroLeavesRepeatsAlone) {
    const SO<ImageTexture2DGL> shared = texture();
    node({shared.get(),
          setOf({V(0, 0, 0), V(1, 0, 0), V(0, 1, 0)}, {V(0, 0, 0), V(400, 0, 0), V(0, 1, 0)}).get()});
    EXPECT_EQ(collect(0.0)->get(0).geometry->triangles(), 1U);
    EXPECT_EQ(collect(-1.0)->get(0).geometry->triangles(), 1U);
    const std::uint64_t before = TriangleCollector::splits();
    const SO<PolygonSet> split = collect(100.0)->get(0).geometry;
    EXPECT_GE(split->triangles(), 4U);
    EXPECT_EQ(TriangleCollector::splits() - before, split->triangles() - 1);
    EXPECT_NEAR(areaOf(*split), 0.5, 1e-12);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TriangleCollectorTest, TexturesThatRepeatWithoutBoundAreTold) {
    node({texture().get(),
          setOf({V(0, 0, 0), V(1, 0, 0), V(0, 1, 0)}, {V(0, 0, 0), V(1e9, 0, 0), V(0, 1e9, 0)}).get()});
    EXPECT_EQ(collect(1.0)->get(0).geometry->triangles(), 1U);
    EXPECT_EQ(reports.count(2, L"false", L"1 triangles repeat their texture too often to be split"), 1U)
        << reports;
}

TEST_F(TriangleCollectorTest, WhatIsNoNumberIsToldAndSoundBehind) {
    const SO<PolygonSet> set =
        setOf({V(0, 0, 0), V(1, 0, 0), V(0, 1, 0), V(s_nan, 0, 0), V(1, 0, 0), V(0, 1, 0), V(0, 0, 0),
               V(INFINITY, 0, 0), V(0, 1, 0), V(0, 0, 0), V(2, 0, 0), V(0, 2, 0)},
              {V(0, 0, 0), V(1, 0, 0), V(0, 1, 0), V(), V(), V(), V(), V(), V(), V(0, s_nan, 0), V(1, 0, 0),
               V(0, 1, 0)});
    node({texture().get(), set.get()});
    const SO<PolygonSet> mesh = collect(100.0)->get(0).geometry;
    ASSERT_EQ(mesh->triangles(), 2U);
    EXPECT_EQ(mesh->newVertexIterator()->get(4), V(2, 0, 0));
    EXPECT_EQ(mesh->newTextureIterator(0)->get(4), V());
    EXPECT_EQ(mesh->newColorIterator()->size(), 6U);
    EXPECT_EQ(reports.count(2, L"false", L"2 triangles with corners that are no numbers are left out"), 1U)
        << reports;
    EXPECT_EQ(
        reports.count(2, L"false", L"1 triangles have texture coordinates that are no numbers; 0 stands in"),
        1U)
        << reports;
}

TEST_F(TriangleCollectorTest, AMeshOfNothingButNoNumbersIsNoMesh) {
    node({texture().get(), setOf(Vectors(3, V(s_nan, 0, 0)), Vectors(3)).get()});
    EXPECT_TRUE(collect()->isEmpty());
    EXPECT_FALSE(untextured);
}

TEST_F(TriangleCollectorTest, DegenerateTrianglesAreKept) {
    node({texture().get(), setOf(Vectors(9000, V(1, 1, 1)), Vectors(9000)).get()});
    EXPECT_EQ(collect(1.0)->get(0).geometry->triangles(), 3000U);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TriangleCollectorTest, ImagesThatCannotBeReadLeaveUntexturedSets) {
    const std::string path = imageFile();
    File::remove(path);
    const SO<ImageTexture2DGL> missing = fileTexture(path);
    reports.clear();
    node({missing.get(), textured().get()});
    node({missing.get(), textured().get()});
    node({new ImageTexture2DGL(SO<Image>()), textured().get()});
    EXPECT_TRUE(collect()->isEmpty());
    ASSERT_TRUE(untextured);
    EXPECT_EQ(untextured->triangles(), 3U);
    EXPECT_EQ(reports.count(2, L"false", L"3 polygon sets whose image cannot be read are without texture"),
              1U)
        << reports;
}

TEST_F(TriangleCollectorTest, UniqueParameterizationGivesEverythingATexture) {
    node({plain().get(), new ColorAttribute(Color::red), textured(V(5, 0, 0)).get()});
    const Meshes meshes = collect(0.0, true);
    EXPECT_FALSE(untextured);
    ASSERT_EQ(meshes->size(), 1U);
    const SO<PolygonSet> set = meshes->get(0).geometry;
    ASSERT_EQ(set->triangles(), 2U);
    EXPECT_EQ(valuesOf(set->newTextureIterator(0)),
              (Vectors{V(0, 0, 0), V(1, 0, 0), V(0.5, 1, 0), V(0, 0, 0), V(1, 0, 0), V(0, 1, 0)}));
    const auto * head = dynamic_cast<const ImageTexture2DGL *>(scene->object(0));
    ASSERT_TRUE(head) << "the default texture stands at the head of the scene";
    EXPECT_EQ(head->getImage()->width(), 128);
    EXPECT_EQ(head->getImage()->height(), 128);
    EXPECT_EQ(head->getBorderColor(), Color(0.0F, 0.0F, 0.0F, 0.0F));
    const Color texel = head->getImage()->getColor(0, 0);
    for (int i = 0; i < 128; ++i)
        ASSERT_EQ(head->getImage()->getColor(i, 127 - i), texel);
    EXPECT_EQ(meshes->get(0).texture->getTexture(), head);
}

TEST_F(TriangleCollectorTest, LinesAreToldAndLeftOut) {
    scene->append(new LineSet(LineSet::PT_Lines, sequence({V(0, 0, 0), V(1, 1, 1)})));
    EXPECT_TRUE(collect()->isEmpty());
    EXPECT_FALSE(untextured);
    EXPECT_EQ(reports.size(), 1U) << reports;
}

TEST_F(TriangleCollectorTest, EveryTriangleEndsInOneMesh) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (unsigned round = 0; round < 20; ++round) {
        scene = new SceneThing();
        std::vector<SO<ImageTexture2DGL>> textures(5);
        for (SO<ImageTexture2DGL> & texture : textures)
            texture = this->texture();
        double area = 0.0;
        unsigned triangles = 0;
        for (unsigned i = 0; i < 30; ++i) {
            const SO<PolygonSet> set = randomMesh(random, 20).geometry;
            const SO<SceneThing> below = node({new Translation(V(i, 2 * i, 0))});
            if (i % 3 != 0) below->append(textures[random() % 5].get());
            below->append(set.get());
            area += areaOf(*set);
            triangles += 20;
        }
        const Meshes meshes = collect(0.0, false, true);
        unsigned found = untextured->triangles();
        for (const Mesh & mesh : *meshes)
            found += mesh.geometry->triangles();
        EXPECT_EQ(found, triangles);
        const Meshes split = collect(0.7, false, true);
        double sum = areaOf(*untextured);
        for (const Mesh & mesh : *split)
            sum += areaOf(*mesh.geometry);
        EXPECT_NEAR(sum, area, 1e-9 * area);
    }
}

TEST_F(TriangleCollectorTest, GivesTheSameEachTime) {
    std::mt19937 random(5);
    const SO<ImageTexture2DGL> textures[] = {texture(), texture(), texture()};
    for (unsigned i = 0; i < 40; ++i)
        node({textures[random() % 3].get(), randomMesh(random, 5).geometry.get()});
    const Meshes first = collect(0.5), second = collect(0.5);
    ASSERT_EQ(first->size(), second->size());
    for (unsigned i = 0; i < first->size(); ++i) {
        EXPECT_EQ(first->get(i).texture->getTexture(), second->get(i).texture->getTexture());
        EXPECT_EQ(valuesOf(first->get(i).geometry->newVertexIterator()),
                  valuesOf(second->get(i).geometry->newVertexIterator()));
    }
}

} // namespace
