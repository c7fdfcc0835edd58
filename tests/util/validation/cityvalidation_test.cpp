#include <zmt/util/validation/cityvalidation.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>
#include <nbx/data/file.h>
#include <nbx/data/objectsaver.h>
#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>
#include <nbx/object/stringutils.h>
#include <support/damagedfiles.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>
#include <zmt/core/texturedtriangles/citymodels.h>

#include "core/texturedtriangles/modelnumber.h"
#include "core/texturedtriangles/testcity.h"

namespace ZMT::UTIL {
namespace {

using CORE::CityModels;
using CORE::RenderNode;
using Tree = CORE::TexturedTriangleTree;
using Bytes = std::vector<std::uint8_t>;
using Model = CityModels::Model;

/// Cities of one tree without meshes, in a folder of their own.
class CityValidationTest : public testing::Test {
protected:
    std::string path(const std::string & name) const { return std::getenv("TMPDIR") + ("/" + name); }

    TestCity::Options options(Tree::TextureFormat format = Tree::TextureFormatRGBA8) const {
        return {.format = format,
                .levels = 2,
                .originals = 2,
                .name = NBX::StringUtils::Utf8String2WString(path("c.1.opaque.city"))};
    }
    static std::vector<Model> rows() {
        const auto box = [](double x) { return NBX::Bounds({x, 0.0, 0.0}, {x + 10.0, 10.0, 10.0}); };
        return {{"house", "h.obj", {1.0, 2.0, 3.0}, box(0.0), 0, 12},
                {"tower", "t.obj", {5.0, 2.0, 3.0}, box(500.0), 12, 8}};
    }
    static void write(const std::string & path, const Bytes & bytes) {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
    }
    /// After `edit` has changed what is stored.
    void build(const TestCity::Options & options, const std::function<void(TestCity &)> & edit = {},
               const std::vector<Model> & models = rows()) const {
        TestCity city(options);
        for (const auto & node : city.all())
            if (node->content.originalTextures)
                node->content.originalGeometry.resize(node->content.originalTextures->size());
        if (edit) edit(city);
        const NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
        scene->append(city.tree.get());
        write(path("c.1.opaque.city"), city.paging);
        NBX::SO<CityModels>(new CityModels(scene, {}, {}, models))->write(path("c.city"));
    }
    ValidationReport checked() const {
        const auto file = CORE::AsyncFile::create(NBX::StringUtils::Utf8String2WString(path("c.city")));
        return CityValidation::run(*file, path("c.city"));
    }
    /// A line for each fault.
    static std::string text(const ValidationReport & report) {
        std::string lines;
        for (const ValidationReport::Fault & fault : report.faults)
            lines += NBX::File::fileName(fault.file) + " " + std::to_string(fault.offset) + ": " +
                     fault.what + "\n";
        return lines;
    }

    const TemporaryFolder folder_;
};

TEST_F(CityValidationTest, SoundCitiesOfAllFormats) {
    for (int format = 0; format <= Tree::TextureFormatJPEG; ++format) {
        SCOPED_TRACE(format);
        build(options(Tree::TextureFormat(format)));
        const ValidationReport report = checked();
        EXPECT_TRUE(report.isSound()) << text(report);
        EXPECT_EQ(report.format, ValidationReport::F_City);
        EXPECT_EQ(report.tiles, 20U + 32U) << "atlases and source textures";
        EXPECT_EQ(report.levels, 3U);
        EXPECT_EQ(report.fileBytes,
                  NBX::File(path("c.city")).size() + NBX::File(path("c.1.opaque.city")).size());
    }
}

/// Two triangles, the vertices of which have these numbers of models, and a height.
NBX::SO<NBX::MappedVertexAttributeShapeGL> meshOf(double first, double second, double height = 0.0) {
    using V = NBX::Vector3Base<double>;
    const NBX::SO<NBX::Array<V>> vertices(new NBX::Array<V>()), numbers(new NBX::Array<V>());
    for (const double number : {first, second})
        for (const V & vertex : {V(0.0, height, 0.0), V(5.0, 0.0, 0.0), V(0.0, 0.0, 5.0)}) {
            vertices->append(vertex);
            numbers->append(V(number, 0.0, 0.0));
        }
    NBX::PolygonSet set(NBX::PolygonSet::PT_Triangles, NBX::SO<NBX::PolygonSet::Vertices>(vertices.get()));
    set.setTextureIterator(NBX::SO<NBX::PolygonSet::Vertices>(numbers.get()), CORE::ModelNumber::unit);
    return CORE::ModelNumber::newMesh(set);
}

/// Its triangles have another vertex more than it has numbers.
NBX::SO<NBX::MappedVertexAttributeShapeGL> meshWithoutItsLastNumber() {
    using Buffer = NBX::MappedVertexAttributeShapeGL::Buffer;
    auto mesh = meshOf(0.0, 1.0);
    mesh->data()->setBuffer(CORE::ModelNumber::bufferName(),
                            new Buffer(NBX::VertexAttributeTraitsGL<float>::componentType, 1, 5));
    return mesh;
}

TEST_F(CityValidationTest, MeshesOfTheModelsOfTheTableAreSound) {
    build(options(), [](TestCity & c) {
        c.tree->setUntexturedGeometry(meshOf(0.0, CORE::ModelNumber::none));
        c.leaf(0, 0)->content.triangles = meshOf(1.0, 0.0);
        c.leaf(0, 0)->content.originalGeometry[0] = meshOf(1.0, 1.0);
        c.leaf(0, 0)->content.originalTexturesWrapModes = {0, 4, 2, 0};
        c.leaf(0, 1)->content.vertexData = meshOf(0.0, 1.0)->data();
    });
    const ValidationReport report = checked();
    EXPECT_TRUE(report.isSound()) << text(report);
}

struct Damage {
    const char * name;
    std::function<void(TestCity &)> edit;
    const char * words;
};

TEST_F(CityValidationTest, EachFaultIsTold) {
    const std::vector<Damage> damages = {
        {"an atlas behind the end",
         [](TestCity & c) { c.leaf(1, 2)->content.blockPositions[0] = c.paging.size(); },
         "c.1.opaque.city 38416: the atlas of node"},
        {"a position that overflows",
         [](TestCity & c) { c.leaf(1, 2)->content.blockPositions[0] = ~0ULL - 3; },
         "ends behind the end of the file"},
        {"a size that overflows", [](TestCity & c) { c.leaf(1, 2)->content.blockSizes[0] = ~0ULL; },
         "ends behind the end of the file"},
        {"a block in another one", [](TestCity & c) { c.leaf(1, 2)->content.blockPositions[0] += 4; },
         "overlaps another one"},
        {"an atlas of another size", [](TestCity & c) { c.leaf(0, 0)->content.blockSizes[0] -= 4; },
         "has 1360 bytes, and needs 1364 for 16 by 16 texels"},
        {"a source texture without width",
         [](TestCity & c) { c.paging[c.leaf(3, 3)->content.originalTexturesBlockPositions[0]] = 0; },
         "says that it has 0 by 8 texels"},
        {"a source texture of a negative height",
         [](TestCity & c) { c.paging[c.leaf(3, 3)->content.originalTexturesBlockPositions[0] + 7] = 0x80; },
         "texels, which cannot be"},
        {"a source texture that is too large",
         [](TestCity & c) { c.paging[c.leaf(3, 3)->content.originalTexturesBlockPositions[0]] = 16; },
         "for 16 by 8 texels"},
        {"a source texture without a size",
         [](TestCity & c) { c.leaf(3, 3)->content.originalTexturesBlockSizes[1] = 7; },
         "is too short to tell its size"},
        {"bytes of nobody", [](TestCity & c) { c.paging.resize(c.paging.size() + 5); },
         "5 bytes belong to nothing"},
        {"a block less", [](TestCity & c) { c.leaf(3, 3)->content.originalTexturesBlockSizes.pop_back(); },
         "has 2 source textures, 2 meshes and 2 blocks"},
        {"a mesh less", [](TestCity & c) { c.leaf(3, 3)->content.originalGeometry.pop_back(); },
         "has 2 source textures, 1 meshes"},
        {"no atlas at all", [](TestCity & c) { c.node(2)->content.blockSizes.clear(); },
         "has atlases for 0 of 1 layers"},
        {"a child outside",
         [](TestCity & c) {
             c.leaf(0, 0)->content.bounds = NBX::Bounds({-50, 0, 0}, {10, 20, 10});
         },
         "lies outside of the one above it"},
        {"a distance that is none", [](TestCity & c) { c.node(1)->content.minDistance = NAN; },
         "has no distance"},
        {"an untextured model that is not in the table",
         [](TestCity & c) { c.tree->setUntexturedGeometry(meshOf(0.0, 2.0)); },
         "tree 1 has triangles without texture of models that the table does not have"},
        {"a model with a broken number",
         [](TestCity & c) { c.tree->setUntexturedGeometry(meshOf(0.5, 1.0)); },
         "without texture of models that the table does not have"},
        {"a model with a number below none",
         [](TestCity & c) { c.tree->setUntexturedGeometry(meshOf(0.0, -2.0)); },
         "without texture of models that the table does not have"},
        {"numbers of other vertices",
         [](TestCity & c) { c.tree->setUntexturedGeometry(meshWithoutItsLastNumber()); }, "tree 1 has"},
        {"untextured triangles at no place",
         [](TestCity & c) { c.tree->setUntexturedGeometry(meshOf(0.0, 1.0, HUGE_VAL)); },
         "has triangles without texture that stand nowhere"},
        {"a model that is not in the table",
         [](TestCity & c) { c.leaf(0, 0)->content.triangles = meshOf(0.0, 7.0); }, "has triangles in node"},
        {"a model that is not in the table, near",
         [](TestCity & c) { c.leaf(0, 0)->content.originalGeometry[1] = meshOf(7.0, 0.0); },
         "of models that the table does not have"},
        {"a model that is not in the table, in a batch",
         [](TestCity & c) { c.leaf(0, 0)->content.vertexData = meshOf(7.0, 0.0)->data(); },
         "of models that the table does not have"},
        {"a wrap mode less",
         [](TestCity & c) {
             c.leaf(3, 3)->content.originalTexturesWrapModes = {0, 0, 2};
         },
         "has 3 wrap modes for 2 source textures"},
        {"a wrap mode that does not exist",
         [](TestCity & c) {
             c.leaf(3, 3)->content.originalTexturesWrapModes = {0, 0, 2, 5};
         },
         "has wrap modes that do not exist"},
        {"no atlas of the root",
         [](TestCity & c) {
             c.tree->registerTextureLayer(0, c.tree->getPagingFile(0), nullptr, Tree::TextureFormatRGBA8);
         },
         "lacks the atlas of its root in layer 0"},
        {"a root of another size", [](TestCity & c) { c.tree->setAtlasSize(8); },
         "of another size than its atlases have"},
    };
    for (const Damage & damage : damages) {
        SCOPED_TRACE(damage.name);
        build(options(), damage.edit);
        const ValidationReport report = checked();
        EXPECT_FALSE(report.isSound());
        EXPECT_NE(text(report).find(damage.words), std::string::npos) << text(report);
        EXPECT_EQ(report.faultCount, report.faults.size());
    }
}

TEST_F(CityValidationTest, TheTableIsCheckedAgainstTheScene) {
    const auto faultsOf = [&](const std::function<void(std::vector<Model> &)> & edit) {
        std::vector<Model> models = rows();
        edit(models);
        build(options(), {}, models);
        return text(checked());
    };
    EXPECT_EQ(faultsOf([](auto &) {}), "");
    EXPECT_EQ(faultsOf([](auto & models) { models[1].box = NBX::Bounds(); }), "")
        << "an empty model has none";
    EXPECT_EQ(faultsOf([](auto & models) { models[1].firstTriangle = 11; }),
              " 0: model 2 of the table begins with triangle 11, and not 12\n");
    EXPECT_EQ(faultsOf([](auto & models) { models[0].triangles = 0xFFFFFFFF; }),
              " 0: model 2 of the table begins with triangle 12, and not 4294967295\n");
    EXPECT_EQ(faultsOf([](auto & models) { models[0].place.y = NAN; }),
              " 0: model 1 of the table stands at no place\n");
    EXPECT_EQ(faultsOf([](auto & models) {
                  models[1].box = NBX::Bounds({0, 0, 0}, {1, 1, 5000});
              }),
              " 0: model 2 of the table has a box that is not in that of the trees\n");
}

TEST_F(CityValidationTest, APagingFileThatIsMissingIsTold) {
    const RecordedReports reports;
    build(options());
    std::filesystem::remove(path("c.1.opaque.city"));
    const ValidationReport report = checked();
    ASSERT_EQ(report.faultCount, 1U) << text(report);
    EXPECT_EQ(report.faults[0].file, path("c.1.opaque.city"));
    EXPECT_NE(report.faults[0].what.find("cannot be opened"), std::string::npos);
    EXPECT_NE(report.faults[0].what.find("put it beside the scene"), std::string::npos);
}

TEST_F(CityValidationTest, PicturesThatCannotBeDecodedAreTold) {
    const RecordedReports reports;
    for (const bool isSource : {false, true}) {
        build(options(Tree::TextureFormatJPEG), [&](TestCity & city) {
            const RenderNode & node = city.leaf(2, 1)->content;
            const std::uint64_t begin =
                isSource ? node.originalTexturesBlockPositions[1] + 8 : node.blockPositions[0];
            // The number of levels, its length, and the beginning of the first file.
            std::fill_n(city.paging.begin() + std::ptrdiff_t(begin) + 5, 40, 0);
        });
        const ValidationReport report = checked();
        EXPECT_EQ(report.faultCount, 1U) << text(report);
        EXPECT_EQ(report.tiles, 51U);
    }
}

TEST_F(CityValidationTest, EveryCutOfAPagingFileIsTold) {
    const RecordedReports reports;
    build(options());
    const Bytes whole = NBX::File::contents(path("c.1.opaque.city"));
    std::mt19937 random(7);
    for (int i = 0; i < 25; ++i) {
        const std::size_t size = i == 0 ? 0 : i == 1 ? whole.size() - 1 : random() % whole.size();
        std::filesystem::resize_file(path("c.1.opaque.city"), size);
        const ValidationReport report = checked();
        EXPECT_FALSE(report.isSound()) << size;
        for (const ValidationReport::Fault & fault : report.faults)
            EXPECT_EQ(fault.file, path("c.1.opaque.city")) << fault.what;
        write(path("c.1.opaque.city"), whole);
    }
}

TEST_F(CityValidationTest, DamagedFilesOnlyHaveFaults) {
    const RecordedReports reports;
    build(options(Tree::TextureFormatJPEG));
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (const char * name : {"c.city", "c.1.opaque.city"}) {
        const Bytes whole = NBX::File::contents(path(name));
        const ModestLook modest(whole.size());
        for (unsigned i = std::max(20U, randomChanges() / 50); i > 0; --i) {
            Bytes damaged = whole;
            for (unsigned change = random() % 3 + 1; change > 0; --change)
                damaged[random() % damaged.size()] = std::uint8_t(random());
            if (random() % 4 == 0) damaged.resize(random() % damaged.size());
            write(path(name), damaged);
            const ValidationReport report = checked();
            EXPECT_EQ(report.format, ValidationReport::F_City);
        }
        write(path(name), whole);
    }
    EXPECT_TRUE(checked().isSound());
}

TEST_F(CityValidationTest, OtherFilesAreNoCities) {
    const auto isCity = [&](const std::string & name) {
        return CityValidation::isCity(
            *CORE::AsyncFile::create(NBX::StringUtils::Utf8String2WString(path(name))));
    };
    build(options());
    EXPECT_TRUE(isCity("c.city"));
    EXPECT_FALSE(isCity("c.1.opaque.city"));
    NBX::ObjectSaver::write(NBX::SO<NBX::SceneThing>(new NBX::SceneThing).get(), path("scene.city"));
    EXPECT_FALSE(isCity("scene.city"));
    // A city that was cut does not tell any more what it is.
    const Bytes whole = NBX::File::contents(path("c.city"));
    write(path("c.city"), {whole.begin(), whole.begin() + 100});
    EXPECT_TRUE(isCity("c.city"));
    const ValidationReport report = checked();
    ASSERT_EQ(report.faultCount, 1U);
    EXPECT_NE(report.faults[0].what.find("the scene cannot be read"), std::string::npos) << text(report);
}

} // namespace
} // namespace ZMT::UTIL
