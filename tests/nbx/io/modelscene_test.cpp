#include "nbx/io/modelscene.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/image/encodedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/pngwriter.h>
#include <nbx/object/exception.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/shape/polygonset.h>

#include "support/recordedreports.h"
#include "support/roundtrip.h"

using namespace NBX;

namespace {

using Matrix = Matrix4x4Base<double>;
using Vector = Vector3Base<double>;

constexpr float s_nan = std::numeric_limits<float>::quiet_NaN();

/// A file in the folder for such, which goes with the object.
class TemporaryFile {
public:
    TemporaryFile(const char * prefix, const void * bytes, unsigned size)
        : path_(File::temporaryFileName(prefix)) {
        File(path_, WM_Create).write(bytes, size);
    }
    ~TemporaryFile() { File::remove(path_); }

    std::string name() const { return File::fileName(path_); }
    std::string folder() const { return File::pathName(path_); }

private:
    std::string path_;
};

/// One node that shows one triangle.
ModelAnswer triangle() {
    ModelAnswer answer;
    answer.materials.resize(1);
    answer.meshes.resize(1);
    answer.meshes[0].positions = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    answer.meshes[0].triangles = {0, 1, 2};
    answer.nodes.resize(1);
    answer.nodes[0].matrix = Matrix().rows();
    answer.nodes[0].meshes = {0};
    return answer;
}

ModelAnswer::Node nodeBelow(std::int32_t parent, const Matrix & matrix) {
    ModelAnswer::Node node;
    node.parent = parent;
    node.matrix = matrix.rows();
    return node;
}

Model build(const ModelAnswer & answer, const Matrix & toScene = Matrix()) {
    Model model;
    ModelTextures textures(answer, "none/model.obj", {});
    ModelScene(answer, textures).build(toScene, model);
    return model;
}

/// The corners of all triangles as the scene has them.
std::vector<Vector> cornersOf(const Model & model) {
    std::vector<Vector> corners;
    model.scene->traverse([&](RenderObj * object, const Matrix & matrix) {
        const auto * set = dynamic_cast<PolygonSet *>(object);
        for (unsigned i = 0; set && i < set->newIndexIterator()->size(); ++i)
            corners.push_back(matrix * set->newVertexIterator()->get(set->newIndexIterator()->get(i)));
        return true;
    });
    return corners;
}

template <class T> std::vector<T *> objectsOf(const Model & model) {
    std::vector<T *> found;
    model.scene->traverse([&](RenderObj * object, const Matrix &) {
        if (auto * wanted = dynamic_cast<T *>(object)) found.push_back(wanted);
        return true;
    });
    return found;
}

} // namespace

TEST(ModelSceneTest, TransformationsOfNodesStandWithinEachOther) {
    ModelAnswer answer = triangle();
    answer.nodes[0].meshes.clear();
    answer.nodes[0].matrix = Matrix::translation({5803210.125, 0, 0}).rows();
    answer.nodes.push_back(nodeBelow(0, Matrix::rotation({0, 0, 1}, std::acos(0.0))));
    answer.nodes.push_back(nodeBelow(1, Matrix::scaling({2, 2, 2})));
    answer.nodes.push_back(nodeBelow(2, Matrix::translation({10, 0, 0})));
    answer.nodes[3].meshes = {0};
    const Model model = build(answer, Matrix::scaling({0.5, 0.5, 0.5}));
    const auto corners = cornersOf(model);
    ASSERT_EQ(corners.size(), 3U);
    const double x = 0.5 * 5803210.125;
    EXPECT_LT((corners[0] - Vector(x, 10, 0)).length(), 1e-9);
    EXPECT_LT((corners[1] - Vector(x, 11, 0)).length(), 1e-9);
    EXPECT_LT((corners[2] - Vector(x - 1, 10, 0)).length(), 1e-9);
    EXPECT_LT((model.box.getLLF() - Vector(x - 1, 10, 0)).length(), 1e-9);
    EXPECT_LT((model.box.getURB() - Vector(x, 11, 0)).length(), 1e-9);
}

TEST(ModelSceneTest, MeshesThatAreShownTwiceAreOneObjectUnlessTheyAreMirrored) {
    ModelAnswer answer = triangle();
    answer.nodes.push_back(nodeBelow(0, Matrix::translation({1, 0, 0})));
    answer.nodes.push_back(nodeBelow(0, Matrix::scaling({-1, 1, 1})));
    answer.nodes.push_back(nodeBelow(2, Matrix::scaling({1, -1, 1}))); // mirrored twice
    for (auto & node : answer.nodes)
        node.meshes = {0};
    const Model model = build(answer);
    const auto sets = objectsOf<PolygonSet>(model);
    ASSERT_EQ(sets.size(), 4U);
    EXPECT_EQ(sets[0], sets[1]);
    EXPECT_NE(sets[0], sets[2]);
    EXPECT_EQ(sets[0], sets[3]);
    EXPECT_EQ(sets[2]->newIndexIterator()->get(1), 2U);
    EXPECT_EQ(sets[2]->newIndexIterator()->get(2), 1U);
    EXPECT_EQ(model.triangles, 4U);
    EXPECT_EQ(model.vertices, 12U);
}

TEST(ModelSceneTest, NodesWithoutAPlaceAreLeftOutWithAllBelow) {
    ModelAnswer answer = triangle();
    Matrix nowhere;
    nowhere(0, 3) = std::numeric_limits<double>::infinity();
    answer.nodes.push_back(nodeBelow(0, nowhere));
    answer.nodes.push_back(nodeBelow(1, Matrix()));
    answer.nodes[1].meshes = answer.nodes[2].meshes = {0};
    const Model model = build(answer);
    EXPECT_EQ(model.triangles, 1U);
    EXPECT_EQ(model.leftOut,
              std::vector<std::string>{"2 meshes of nodes whose place is no number are left out"});
}

TEST(ModelSceneTest, NumbersThatAreNoneDoNoHarm) {
    ModelAnswer answer = triangle();
    answer.materials[0].color = {s_nan, 2.0F, -1.0F, s_nan};
    answer.materials[0].shininess = s_nan;
    answer.meshes[0].coordinates = {s_nan, 0, 1, INFINITY, 0, 1};
    answer.meshes[0].normals = {0, 0, 1, s_nan, 0, 1, 0, 0, 1};
    answer.meshes[0].colors = {s_nan, 0, 0, 2, 1, 1, 1, 1, 1, 1, 1, -3};
    const Model model = build(answer);
    EXPECT_EQ(objectsOf<ColorAttribute>(model).at(0)->getColor(), Color(1.0F, 1.0F, 0.0F, 1.0F));
    const PolygonSet & set = *objectsOf<PolygonSet>(model).at(0);
    EXPECT_EQ(set.newTextureIterator()->get(0), Vector(0, 0, 0));
    EXPECT_EQ(set.newTextureIterator()->get(1), Vector(1, 0, 0));
    EXPECT_EQ(set.newNormalIterator()->get(1), Vector(0, 0, 1));
    EXPECT_EQ(set.newColorIterator()->get(0), Color(1.0F, 0.0F, 0.0F, 1.0F));
    EXPECT_EQ(set.newColorIterator()->get(2), Color(1.0F, 1.0F, 1.0F, 0.0F));
}

TEST(ModelSceneTest, TooManyTrianglesByRepetitionAreRefused) {
    ModelAnswer answer = triangle();
    answer.meshes[0].triangles.assign(3 << 12, 0);
    answer.nodes[0].meshes.assign((1U << 12) + 1, 0);
    try {
        build(answer);
        ADD_FAILURE() << "built";
    } catch (const IOError & failure) {
        EXPECT_EQ(failure.message(), L"draws more than 16777216 triangles, counted at each place where they "
                                     L"are shown; divide it into several models, or place it several times");
    }
    answer.nodes[0].meshes.pop_back();
    EXPECT_EQ(build(answer).triangles, 1U << 24U);
}

TEST(ModelSceneTest, AnEmptyModelHasNoBox) {
    ModelAnswer answer = triangle();
    answer.meshes[0].triangles.clear();
    const Model model = build(answer);
    EXPECT_EQ(model.triangles, 0U);
    EXPECT_FALSE(model.box.isDefined());
    EXPECT_TRUE(model.leftOut.empty());
}

TEST(ModelTexturesTest, PixelsInAModelBeginAtTheTop) {
    ModelAnswer answer = triangle();
    answer.textures = {{"pixels", 1, 2, {1, 2, 3, 4, 5, 6, 7, 8}}};
    answer.materials[0].embedded = 0;
    ModelTextures textures(answer, "none/model.obj", {});
    const SO<ImageTexture2DGL> texture = textures.textureOf(answer.materials[0]);
    ASSERT_TRUE(texture);
    EXPECT_EQ(texture->getImage()->lineComponentsU8(1)[0], 1);
    EXPECT_EQ(texture->getImage()->lineComponentsU8(0)[3], 8);
    EXPECT_EQ(textures.told().at(0).name, "pixels");
    EXPECT_EQ(textures.told().at(0).height, 2);
}

TEST(ModelTexturesTest, OneImageServesAllMaterialsAndEachWayToGoOnIsATexture) {
    const RecordedReports reports;
    SO<MemoryImage> picture(new MemoryImage(3, 2, LS_RGB));
    const auto png = SO<PNGWriter>(new PNGWriter())->write(picture.get());
    const auto * bytes = static_cast<const std::uint8_t *>(png->pointer());
    ModelAnswer answer = triangle();
    answer.textures = {{"a.png", 0, 0, {bytes, bytes + png->size()}}, {"none", 0, 0, {1, 2, 3}}};
    answer.materials.resize(4);
    for (auto & material : answer.materials)
        material.embedded = 0;
    answer.materials[2].wrapT = ModelAnswer::W_MirroredRepeat;
    answer.materials[3].embedded = 1;
    ModelTextures textures(answer, "none/model.obj", {});
    const auto first = textures.textureOf(answer.materials[0]);
    EXPECT_EQ(textures.textureOf(answer.materials[1]), first);
    const auto mirrored = textures.textureOf(answer.materials[2]);
    EXPECT_NE(mirrored, first);
    EXPECT_EQ(mirrored->getImage(), first->getImage());
    EXPECT_EQ(mirrored->getWrapS(), TextureGL::WM_Repeat);
    EXPECT_EQ(mirrored->getWrapT(), TextureGL::WM_MirroredRepeat);
    EXPECT_FALSE(textures.textureOf(answer.materials[3]));
    EXPECT_FALSE(textures.textureOf(answer.materials[3]));
    ASSERT_EQ(textures.told().size(), 2U);
    EXPECT_NE(textures.told()[1].failure, "");
    EXPECT_TRUE(dynamic_cast<EncodedImage *>(first->getImage().get()));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(ModelTexturesTest, OpaqueMaterialsHaveNoAlphaInTheirTextures) {
    const RecordedReports reports;
    SO<MemoryImage> picture(new MemoryImage(2, 1, LS_RGBA));
    picture->setColor(0, 0, Color(0.2F, 0.4F, 0.6F, 0.0F));
    picture->setColor(1, 0, Color(1.0F, 0.0F, 1.0F, 1.0F));
    const auto png = SO<PNGWriter>(new PNGWriter())->write(picture.get());
    const auto * bytes = static_cast<const std::uint8_t *>(png->pointer());
    const TemporaryFile file("nbx-opaque-", bytes, png->size());
    ModelAnswer answer = triangle();
    answer.textures = {{"a.png", 0, 0, {bytes, bytes + png->size()}},
                       {"pixels", 2, 1, {51, 102, 153, 0, 255, 0, 255, 255}}};
    answer.materials.assign(3, {});
    answer.materials[0].embedded = 0;
    answer.materials[1].embedded = 1;
    answer.materials[2].texture = file.name();
    ModelTextures textures(answer, file.folder() + "model.gltf", {});
    for (ModelAnswer::Material material : answer.materials) {
        const auto blended = textures.textureOf(material)->getImage();
        material.isOpaque = 1;
        const auto texture = textures.textureOf(material);
        const auto image = texture->getImage();
        EXPECT_EQ(textures.textureOf(material), texture);
        EXPECT_EQ(blended->layerSequence(), LS_RGBA);
        EXPECT_EQ(image->layerSequence(), LS_RGB);
        EXPECT_EQ(image->width(), 2);
        const auto encoded = soCast<EncodedImage>(image);
        EXPECT_EQ(bool(encoded), material.embedded != 1);
        EXPECT_FALSE(encoded && encoded->isDecoded());
        EXPECT_EQ(image->getColor(0, 0), Color(0.2F, 0.4F, 0.6F));
        EXPECT_EQ(image->getColor(1, 0), Color(1.0F, 0.0F, 1.0F));
        EXPECT_EQ(blended->getColor(0, 0)[3], 0.0F);
        if (!encoded) continue;
        EXPECT_EQ(encoded->fileName(), ""); // who opens it finds the alpha
        const auto stored = roundTrip(encoded);
        ASSERT_TRUE(stored);
        EXPECT_EQ(stored->name(), soCast<EncodedImage>(blended)->name());
        EXPECT_EQ(stored->layerSequence(), LS_RGB);
        EXPECT_EQ(stored->getColor(0, 0), Color(0.2F, 0.4F, 0.6F));
        EXPECT_FALSE(encoded->withoutAlpha());
    }
    EXPECT_EQ(textures.told().size(), 3U);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(ModelTexturesTest, NamesAreShownOnOneLine) {
    ModelAnswer answer = triangle();
    answer.materials[0].texture = "a\nb\x1B[31m.png";
    ModelTextures textures(answer, "none/model.obj", {});
    EXPECT_FALSE(textures.textureOf(answer.materials[0]));
    EXPECT_EQ(textures.told().at(0).name, "a b [31m.png");
}
