#include <nbx/io/modelfile.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/data/objectloader.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/encodedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/pngwriter.h>
#include <nbx/object/exception.h>
#include <nbx/object/nbxtime.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/facestyle.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>

#include "nbx/io/readerprocess.h"
#include "support/cancelingdisplay.h"
#include "support/damagedfiles.h"
#include "support/glfixture.h"
#include "support/recordedreports.h"
#include "support/roundtrip.h"

using namespace NBX;

namespace {

namespace fs = std::filesystem;
using Vector = Vector3Base<double>;

std::string modelsFolder() {
    const char * data = std::getenv("ZMT_TEST_DATA");
    return std::string(data ? data : "tests/data") + "/models";
}

std::string prism(const std::string & suffix) {
    return modelsFolder() + "/prism." + suffix;
}

/// For each format, how it has to be read for the prism to stand upright, and where it stands then.
struct Format {
    const char * suffix;
    bool needsUp, hasPlace;
    bool hasMaterials;
    /// Those of a 3DS file are smoothed over all sides by the library that reads it.
    bool hasNormals;
    friend std::ostream & operator<<(std::ostream & stream, const Format & format) {
        return stream << format.suffix;
    }
};

constexpr Format s_formats[] = {
    {"obj", true, false, true, false},  {"dae", false, true, true, true},
    {"gltf", false, true, true, true},  {"glb", false, true, true, true},
    {"fbx", false, true, true, false},  {"3ds", false, false, true, false},
    {"stl", false, false, false, true}, {"ply", false, false, false, false},
};

ModelOptions optionsOf(const Format & format) {
    ModelOptions options;
    if (format.needsUp) options.up = ModelUp::Z;
    // Its names are short, and know no folders.
    options.textureFolders = {modelsFolder() + "/textures"};
    return options;
}

/// A triangle as the scene has it.
struct Triangle {
    std::array<Vector, 3> corners, normals, coordinates;
    Color color;
    const ImageTexture2DGL * texture = nullptr;
    bool hasNormals = false;

    /// As the front is seen counter-clockwise in a left-handed scene.
    Vector outwards() const { return -(corners[1] - corners[0]).cross(corners[2] - corners[0]).normalized(); }
    Vector centre() const { return (corners[0] + corners[1] + corners[2]) / 3.0; }
};

void takePolygons(const PolygonSet & set, const Matrix4x4Base<double> & matrix, Triangle looks,
                  std::vector<Triangle> & triangles) {
    const auto coordinates = set.newTextureIterator();
    const auto normals = set.newNormalIterator();
    looks.hasNormals = bool(normals);
    for (unsigned i = 0; i < set.triangles(); ++i) {
        std::array<unsigned, 3> numbers;
        ASSERT_TRUE(set.triangle(i, numbers));
        for (unsigned k = 0; k < 3; ++k) {
            looks.corners[k] = matrix * set.newVertexIterator()->get(numbers[k]);
            if (coordinates) looks.coordinates[k] = coordinates->get(numbers[k]);
            if (normals)
                looks.normals[k] =
                    matrix.inverse().transposed().transformDirection(normals->get(numbers[k])).normalized();
        }
        triangles.push_back(looks);
    }
}

std::vector<Triangle> trianglesOf(const SceneThing & scene) {
    std::vector<Triangle> triangles;
    Triangle looks;
    scene.traverse([&](RenderObj * object, const Matrix4x4Base<double> & matrix) {
        if (const auto * color = dynamic_cast<ColorAttribute *>(object)) {
            looks.color = color->getColor();
            looks.texture = nullptr;
        }
        if (const auto * texture = dynamic_cast<ImageTexture2DGL *>(object)) looks.texture = texture;
        if (const auto * set = dynamic_cast<PolygonSet *>(object))
            takePolygons(*set, matrix, looks, triangles);
        return true;
    });
    return triangles;
}

/// Those at the corners of polygons, in the order of these.
std::vector<Color> colorsOf(const SceneThing & scene) {
    std::vector<Color> colors;
    scene.traverse([&](RenderObj * object, const Matrix4x4Base<double> &) {
        const auto * set = dynamic_cast<PolygonSet *>(object);
        const auto all = set ? set->newColorIterator() : nullptr;
        for (unsigned i = 0; all && i < all->size(); ++i)
            colors.push_back(all->get(i));
        return true;
    });
    return colors;
}

/// The corners of the prism as east, up and north, by the letters that the maker of the files has for them.
struct Prism {
    Vector a0{0, 0, 0}, b0{3, 0, 0}, c0{0, 0, 2}, a1{0, 4, 0}, b1{3, 4, 0}, c1{0, 5, 2};
    std::array<Vector, 6> all() const { return {a0, b0, c0, a1, b1, c1}; }
};

/// Number of the corner at `p`, or -1.
int cornerAt(const Vector & p) {
    const auto all = Prism().all();
    for (unsigned i = 0; i < all.size(); ++i)
        if ((all[i] - p).length() < 1e-4) return static_cast<int>(i);
    return -1;
}

/// The corners of a triangle by their numbers, beginning with the least.
std::array<int, 3> numbersOf(const Triangle & triangle, const Vector & place) {
    std::array<int, 3> numbers;
    for (unsigned k = 0; k < 3; ++k)
        numbers[k] = cornerAt(triangle.corners[k] - place);
    std::rotate(numbers.begin(), std::min_element(numbers.begin(), numbers.end()), numbers.end());
    return numbers;
}

const EncodedImage * imageOf(const ImageTexture2DGL * texture) {
    return texture ? dynamic_cast<const EncodedImage *>(texture->getImage().get()) : nullptr;
}

std::string failureOf(const std::string & path, const ModelOptions & options = {}) {
    try {
        ModelFile::read(path, options);
    } catch (const InputException & failure) {
        return failure.what();
    } catch (const IOException & failure) {
        return failure.what();
    }
    return "none";
}

class ModelFileTest : public testing::TestWithParam<Format> {};

std::string nameOf(const testing::TestParamInfo<Format> & info) {
    return std::string("of_") + info.param.suffix;
}

/// A folder of its own for files that a test writes.
class ModelFolderTest : public testing::Test {
protected:
    ModelFolderTest() {
        top_ = File::temporaryFileName("nbx-model-file-");
        File::remove(top_);
        fs::create_directories(top_ + "/model");
    }
    ~ModelFolderTest() override {
        ReaderProcess::setProgram("");
        fs::remove_all(top_);
    }

    std::string write(const std::string & name, const std::string & text) const {
        std::ofstream(top_ + "/" + name, std::ios::binary) << text;
        return top_ + "/" + name;
    }
    /// A program of the shell that answers in the place of the true one.
    void answerBy(const std::string & script) const {
        const std::string path = write("program", "#!/bin/sh\n" + script + "\n");
        fs::permissions(path, fs::perms::owner_all);
        ReaderProcess::setProgram(path);
    }
    /// A triangle with a texture of that name.
    std::string triangle(const std::string & texture) const {
        write("model/t.mtl", "newmtl m\nmap_Kd " + texture + "\n");
        return write("model/t.obj", "mtllib t.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 0 1\n"
                                    "usemtl m\nf 1/1 2/2 3/3\n");
    }
    ModelTexture textureOf(const std::string & name, const std::vector<std::string> & folders = {}) const {
        ModelOptions options;
        options.textureFolders = folders;
        const Model model = ModelFile::read(triangle(name), options);
        EXPECT_EQ(model.textures.size(), 1U);
        EXPECT_EQ(bool(trianglesOf(*model.scene).at(0).texture), model.textures.at(0).failure.empty());
        return model.textures.at(0);
    }
    /// The colours at the corners of a triangle whose COLOR_0 has `components`.
    std::vector<Color> cornersOfGltf(const std::vector<float> & colors, unsigned components,
                                     const std::string & material) const {
        const std::vector<float> corners = {0, 0, 0, 1, 0, 0, 0, 1, 0};
        std::string bytes(reinterpret_cast<const char *>(corners.data()), 36);
        bytes.append(reinterpret_cast<const char *>(colors.data()), colors.size() * sizeof(float));
        write("model/t.bin", bytes);
        const std::string length = std::to_string(bytes.size() - 36), type = std::to_string(components);
        const Model model = ModelFile::read(write(
            "model/t.gltf",
            R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0]}], "nodes": [{"mesh": 0}],
            "meshes": [{"primitives": [{"attributes": {"POSITION": 0, "COLOR_0": 1}, "material": 0}]}],
            "materials": [{)" +
                material + R"(}], "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3,
            "type": "VEC3", "min": [0, 0, 0], "max": [1, 1, 0]},
            {"bufferView": 1, "componentType": 5126, "count": 3, "type": "VEC)" +
                type + R"("}], "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 36},
            {"buffer": 0, "byteOffset": 36, "byteLength": )" +
                length + R"(}], "buffers": [{"byteLength": )" + std::to_string(bytes.size()) +
                R"(, "uri": "t.bin"}]})"));
        return colorsOf(*model.scene);
    }
    void copyLetter(const std::string & name) const {
        fs::copy_file(modelsFolder() + "/textures/letter.png", top_ + "/" + name);
    }

    std::string top_;
};

class ModelPictureTest : public GLFixture {};

} // namespace

TEST_P(ModelFileTest, StandsInTheScenesAxesWithItsFrontsOutwards) {
    const Model model = ModelFile::read(prism(GetParam().suffix), optionsOf(GetParam()));
    const Vector place = GetParam().hasPlace ? Vector(100, 300, 200) : Vector();
    const auto triangles = trianglesOf(*model.scene);
    ASSERT_EQ(triangles.size(), 8U);
    std::vector<std::array<int, 3>> found;
    for (const Triangle & triangle : triangles) {
        found.push_back(numbersOf(triangle, place));
        const Vector fromMiddle = triangle.centre() - place - Vector(0.9, 2.2, 0.6);
        EXPECT_GT(triangle.outwards().dot(fromMiddle), 0.0) << found.size();
        for (const Vector & normal : triangle.normals)
            if (GetParam().hasNormals) {
                EXPECT_GT(normal.dot(triangle.outwards()), 0.9999);
            }
    }
    EXPECT_TRUE(triangles[0].hasNormals || !GetParam().hasNormals);
    // Counter-clockwise as seen from outside.
    std::vector<std::array<int, 3>> expected = {{0, 1, 4}, {0, 4, 3}, {0, 2, 1}, {3, 4, 5},
                                                {0, 3, 2}, {2, 3, 5}, {1, 2, 5}, {1, 5, 4}};
    for (auto & numbers : expected) // (2, 0, 3) and (2, 3, 5) are the western wall
        std::rotate(numbers.begin(), std::min_element(numbers.begin(), numbers.end()), numbers.end());
    std::sort(found.begin(), found.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(found, expected);
    EXPECT_EQ(model.triangles, 8U);
    EXPECT_NEAR((model.box.getLLF() - place).length(), 0.0, 1e-4);
    EXPECT_NEAR((model.box.getURB() - place - Vector(3, 5, 2)).length(), 0.0, 1e-4);
    EXPECT_TRUE(model.leftOut.empty()) << model.leftOut.at(0);
}

TEST_P(ModelFileTest, MaterialsBecomeColorTextureAndTransparency) {
    const Model model = ModelFile::read(prism(GetParam().suffix), optionsOf(GetParam()));
    if (!GetParam().hasMaterials) {
        EXPECT_TRUE(model.textures.empty());
        return;
    }
    EXPECT_EQ(model.materials, 3U);
    ASSERT_EQ(model.textures.size(), 1U);
    EXPECT_EQ(model.textures[0].failure, "");
    EXPECT_EQ(model.textures[0].width, 8);
    EXPECT_EQ(model.textures[0].path.empty(), std::string(GetParam().suffix) == "glb");
    const Vector place = GetParam().hasPlace ? Vector(100, 300, 200) : Vector();
    const auto near = [](const Color & a, const Color & b) {
        for (unsigned i = 0; i < 4; ++i)
            if (std::abs(a[i] - b[i]) > 0.01F) return false;
        return true;
    };
    for (const Triangle & triangle : trianglesOf(*model.scene)) {
        const auto numbers = numbersOf(triangle, place);
        const bool isGlass = numbers[0] == 1 && numbers[1] != 4;
        const bool isWall = numbers == std::array{0, 1, 4} || numbers == std::array{0, 4, 3};
        SCOPED_TRACE(testing::PrintToString(numbers));
        EXPECT_TRUE(near(triangle.color, isGlass  ? Color(0.25F, 0.5F, 1.0F, 0.5F)
                                         : isWall ? Color::white
                                                  : Color(0.5F, 0.25F, 0.125F)))
            << triangle.color[0] << " " << triangle.color[1] << " " << triangle.color[2] << " "
            << triangle.color[3];
        EXPECT_EQ(triangle.texture != nullptr, isWall);
        // s runs to the east on the southern wall, t upwards.
        for (unsigned k = 0; k < 3 && isWall; ++k) {
            EXPECT_NEAR(triangle.coordinates[k].x, (triangle.corners[k].x - place.x) / 3.0, 1e-5);
            EXPECT_NEAR(triangle.coordinates[k].y, (triangle.corners[k].y - place.y) / 4.0, 1e-5);
        }
    }
}

TEST_P(ModelFileTest, TexturesAreEncodedImagesThatRepeat) {
    if (!GetParam().hasMaterials) return;
    const Model model = ModelFile::read(prism(GetParam().suffix), optionsOf(GetParam()));
    for (const Triangle & triangle : trianglesOf(*model.scene)) {
        if (!triangle.texture) continue;
        const EncodedImage * image = imageOf(triangle.texture);
        ASSERT_TRUE(image);
        EXPECT_FALSE(image->isDecoded());
        EXPECT_EQ(triangle.texture->getWrapS(), TextureGL::WM_Repeat);
        EXPECT_EQ(triangle.texture->getWrapT(), TextureGL::WM_Repeat);
        EXPECT_EQ(bool(image->data()), image->fileName().empty());
        // The upper left corner of the F, in the third column and the second line from above, is white.
        EXPECT_EQ(image->getColor(1, 6), Color::white);
        EXPECT_EQ(image->getColor(6, 6), Color::white);
        EXPECT_NE(image->getColor(6, 1), Color::white);
        EXPECT_EQ(image->getColor(1, 1), Color::white);
        return;
    }
    ADD_FAILURE() << "no texture";
}

TEST_P(ModelFileTest, IsReadByTheLoaderAndStored) {
    const RecordedReports reports;
    const SO<SceneThing> scene = dynamic_cast<SceneThing *>(
        ObjectLoader::readFile(prism(GetParam().suffix), SceneThing::ClassNameNBX(), true).get());
    ASSERT_TRUE(scene);
    const SO<SceneThing> stored = roundTrip(scene);
    ASSERT_TRUE(stored);
    EXPECT_EQ(trianglesOf(*stored).size(), 8U);
    // The short name of one is not where it is looked for.
    EXPECT_EQ(reports.size(), std::string(GetParam().suffix) == "3ds" ? 1U : 0U) << reports;
}

TEST_P(ModelFileTest, DamagedFilesAreReadOrRefusedInOneLine) {
    const bool isLong = std::getenv("ZMT_TEST_CHANGES") != nullptr;
    const std::string suffix = GetParam().suffix;
    std::ifstream stream(prism(suffix), std::ios::binary);
    const std::string whole((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    std::vector<std::string> damaged;
    const std::size_t step = isLong ? 1 : std::max<std::size_t>(1, whole.size() / 100);
    for (std::size_t length = 0; length < whole.size(); length += step)
        damaged.push_back(whole.substr(0, length));
    std::mt19937 random(11);
    for (unsigned i = 0; i < (isLong ? randomChanges() : 100U); ++i) {
        damaged.push_back(whole);
        for (unsigned k = 0; k <= random() % 4; ++k)
            damaged.back()[random() % whole.size()] = static_cast<char>(random());
    }
    std::atomic<std::size_t> next{0}, read{0};
    const auto work = [&](unsigned worker) {
        const std::string folder = testing::TempDir() + "zmt_damaged_" + suffix + std::to_string(::getpid()) +
                                   std::to_string(worker);
        fs::copy(modelsFolder(), folder, fs::copy_options::recursive);
        const std::string path = folder + "/damaged." + suffix;
        ModelOptions options = optionsOf(GetParam());
        options.memoryLimit = std::uint64_t{512} << 20;
        options.secondsLimit = 3.0;
        for (std::size_t i = next++; i < damaged.size(); i = next++) {
            std::ofstream(path, std::ios::binary) << damaged[i];
            try {
                trianglesOf(*ModelFile::read(path, options).scene);
                ++read;
            } catch (const Exception & failure) {
                const std::string line = failure.what();
                EXPECT_EQ(line.find('\n'), std::string::npos) << line;
                EXPECT_NE(line.find("damaged." + suffix), std::string::npos) << line;
            }
        }
        fs::remove_all(folder);
    };
    const double start = NBXTime::now();
    std::thread other(work, 1);
    work(0);
    other.join();
    std::printf("%s: %zu of %zu damaged files are still read, %.1f ms each\n", suffix.c_str(), read.load(),
                damaged.size(), 1000.0 * (NBXTime::now() - start) / double(damaged.size()));
}

INSTANTIATE_TEST_SUITE_P(Formats, ModelFileTest, testing::ValuesIn(s_formats), nameOf);

TEST(ModelFileAxesTest, TellsWhatWasAppliedAndWhoSaidIt) {
    struct Case {
        const char * suffix;
        ModelUp up;
        double unit;
        ModelSource upSource, unitSource;
    };
    using Source = ModelSource;
    for (const Case & c : {Case{"obj", ModelUp::Y, 1.0, Source::Format, Source::Format},
                           Case{"dae", ModelUp::Z, 1.0, Source::File, Source::File},
                           Case{"gltf", ModelUp::Y, 1.0, Source::File, Source::File},
                           Case{"glb", ModelUp::Y, 1.0, Source::File, Source::File},
                           Case{"fbx", ModelUp::Z, 0.0254, Source::File, Source::File},
                           Case{"3ds", ModelUp::Z, 1.0, Source::Format, Source::Format},
                           Case{"stl", ModelUp::Z, 1.0, Source::Format, Source::Format},
                           Case{"ply", ModelUp::Z, 1.0, Source::Format, Source::Format}}) {
        SCOPED_TRACE(c.suffix);
        const Model model = ModelFile::read(prism(c.suffix));
        EXPECT_EQ(model.up, c.up);
        EXPECT_DOUBLE_EQ(model.metresPerUnit, c.unit);
        EXPECT_EQ(model.upSource, c.upSource);
        EXPECT_EQ(model.unitSource, c.unitSource);
    }
}

TEST(ModelFileAxesTest, OptionsComeBeforeTheFile) {
    ModelOptions options;
    options.up = ModelUp::Y;
    options.metresPerUnit = 0.5;
    const Model model = ModelFile::read(prism("dae"), options);
    EXPECT_EQ(model.upSource, ModelSource::Option);
    EXPECT_EQ(model.unitSource, ModelSource::Option);
    // (100, 200, 300) and (103, 202, 305) of the file, with y upwards and z to the south.
    EXPECT_NEAR((model.box.getLLF() - Vector(50, 100, -152.5)).length(), 0.0, 1e-4);
    EXPECT_NEAR((model.box.getURB() - Vector(51.5, 101, -150)).length(), 0.0, 1e-4);
    for (const double none : {0.0, -1.0, double(NAN), double(INFINITY)}) {
        options.metresPerUnit = none;
        EXPECT_NE(failureOf(prism("dae"), options).find("choose one above 0"), std::string::npos);
    }
}

TEST_F(ModelFolderTest, ColladaMayHaveXUpwardsAndAUnitOfItsOwn) {
    std::ifstream stream(prism("dae"));
    std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    text.replace(text.find("Z_UP"), 4, "X_UP");
    text.replace(text.find("meter=\"1\""), 9, "meter=\"0.0254\"");
    const Model model = ModelFile::read(write("model/x.dae", text));
    EXPECT_EQ(model.up, ModelUp::X);
    EXPECT_EQ(model.metresPerUnit, 0.0254);
    // x (100 to 103) is up, y (200 to 202) west, z (300 to 305) south.
    EXPECT_NEAR((model.box.getLLF() / 0.0254 - Vector(-202, 100, -305)).length(), 0.0, 1e-3);
    EXPECT_NEAR((model.box.getURB() / 0.0254 - Vector(-200, 103, -300)).length(), 0.0, 1e-3);
    for (const Triangle & triangle : trianglesOf(*model.scene))
        EXPECT_GT(triangle.normals[0].dot(triangle.outwards()), 0.9999);
}

TEST(ModelFileNodesTest, NodesThatMirrorKeepTheirFrontsOutside) {
    const Model model = ModelFile::read(modelsFolder() + "/mirrored.gltf");
    const Vector place(100, 300, 200);
    const auto triangles = trianglesOf(*model.scene);
    ASSERT_EQ(triangles.size(), 8U);
    for (const Triangle & triangle : triangles) {
        const Vector fromMiddle = triangle.centre() - place - Vector(-0.9, 2.2, 0.6);
        EXPECT_GT(triangle.outwards().dot(fromMiddle), 0.0);
        EXPECT_GT(triangle.normals[0].dot(triangle.outwards()), 0.9999);
    }
    EXPECT_NEAR(model.box.getLLF().x, 97.0, 1e-4);
}

TEST_F(ModelPictureTest, LettersAreSeenUprightAndTheRightWayRound) {
    for (const char * suffix : {"dae", "glb", "fbx"}) {
        SCOPED_TRACE(suffix);
        root->clear();
        const Model model = ModelFile::read(prism(suffix));
        // From the south, over the whole of the wall.
        const Vector wall(101.5, 302.0, 200.0);
        root->append(new Camera(new LookAt(wall - Vector(0, 0, 10), wall, Vector(0, 1, 0)),
                                new Ortho(-1.5, 1.5, -2.0, 2.0, 1.0, 20.0)));
        root->append(new FaceStyle(FaceStyle::S_Filled, FaceStyle::S_Culled, FaceStyle::O_CounterClockwise));
        root->append(model.scene.get());
        const SO<Image> picture = draw();
        const auto isLetter = [&](int column, int line) {
            return pixel(picture, 8 * column + 4, 8 * line + 4)[1] > 128;
        };
        const char * expected[] = {"........", ".######.", ".#......", ".####...",
                                   ".#......", ".#......", ".#......", "........"};
        for (int line = 0; line < 8; ++line)
            for (int column = 0; column < 8; ++column)
                ASSERT_EQ(isLetter(column, line), expected[7 - line][column] == '#') << column << " " << line;
    }
}

TEST(ModelFileFailureTest, WhatIsNoModelIsRefusedInOneLine) {
    EXPECT_TRUE(ModelFile::recognizes("a/b.GLTF"));
    EXPECT_FALSE(ModelFile::recognizes("a/obj"));
    EXPECT_NE(failureOf("a.txt").find("choose a COLLADA, OBJ, glTF"), std::string::npos);
    EXPECT_NE(failureOf("none.obj").find("file not found"), std::string::npos);
    EXPECT_NE(failureOf(modelsFolder() + "/makemodels.py").find("is no model"), std::string::npos);
}

TEST_F(ModelFolderTest, AFileOfAnotherFormatIsReadAsItsSuffixSays) {
    fs::copy_file(prism("dae"), top_ + "/model/wrong.glb");
    const std::string failure = failureOf(top_ + "/model/wrong.glb");
    EXPECT_NE(failure.find("cannot be read as glb"), std::string::npos) << failure;
    fs::create_directory(top_ + "/model/folder.obj");
    EXPECT_NE(failureOf(top_ + "/model/folder.obj").find("is no regular file"), std::string::npos);
}

TEST_F(ModelFolderTest, TexturesAreFoundBelowTheModelAndInFoldersThatAreGiven) {
    fs::create_directories(top_ + "/model/sub");
    fs::create_directories(top_ + "/other/deep");
    copyLetter("model/sub/in.png");
    copyLetter("other/deep/far.png");
    copyLetter("outside.png");
    EXPECT_EQ(textureOf("sub/IN.png").path, fs::canonical(top_ + "/model/sub/in.png"));
    EXPECT_NE(textureOf("deep/far.png").failure.find("there is no such file"), std::string::npos);
    const std::vector<std::string> folders = {top_ + "/none", top_ + "/other", top_};
    EXPECT_EQ(textureOf("deep/far.png", folders).path, fs::canonical(top_ + "/other/deep/far.png"));
    EXPECT_EQ(textureOf("C:\\texture\\outside.png", folders).path, fs::canonical(top_ + "/outside.png"));
}

TEST_F(ModelFolderTest, TexturesElsewhereAreRefusedWithAReason) {
    copyLetter("outside.png");
    fs::create_symlink(top_ + "/outside.png", top_ + "/model/link.png");
    EXPECT_NE(textureOf("../outside.png").failure.find("leads out of the folder"), std::string::npos);
    EXPECT_NE(textureOf(top_ + "/outside.png").failure.find("is absolute"), std::string::npos);
    EXPECT_NE(textureOf("link.png").failure.find("a link that leads out"), std::string::npos);
    EXPECT_NE(textureOf("http://host/a.png").failure.find("server"), std::string::npos);
}

TEST_F(ModelFolderTest, TexturesThatCannotBeDecodedAreLeftOut) {
    const RecordedReports reports;
    write("model/none.png", "no image");
    write("model/empty.png", "");
    EXPECT_EQ(textureOf("none.png").failure, "is no JPEG, PNG, BMP or TGA file; convert it to one of these");
    EXPECT_EQ(textureOf("empty.png").failure, "is no JPEG, PNG, BMP or TGA file; convert it to one of these");
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(ModelFolderTest, ColorsOfObjMultiplyTheirTextureUnlessTheyAreBlack) {
    copyLetter("model/a.png");
    const std::string path = triangle("a.png");
    const auto colorWith = [&](const std::string & line) {
        write("model/t.mtl", "newmtl m\n" + line + "\nmap_Kd a.png\n");
        return trianglesOf(*ModelFile::read(path).scene).at(0).color;
    };
    EXPECT_EQ(colorWith("Kd 0.5 0.25 1"), Color(0.5F, 0.25F, 1.0F));
    EXPECT_EQ(colorWith("Kd 0 0 0"), Color::white);
}

TEST_F(ModelFolderTest, ColorsOfCornersInGltfAreOpaqueUnlessTheyHaveAnAlphaThatCounts) {
    const std::string blend = "\"alphaMode\": \"BLEND\"", none = "\"name\": \"m\"";
    const std::vector<float> three = {1, 0, 0, 0, 0.5F, 0, 0, 0, 0.25F};
    const std::vector<float> four = {1, 0, 0, 0.5F, 0, 0.5F, 0, 0, 0, 0, 0.25F, 1};
    const std::vector<Color> solid = {Color(1.0F, 0.0F, 0.0F), Color(0.0F, 0.5F, 0.0F),
                                      Color(0.0F, 0.0F, 0.25F)};
    EXPECT_EQ(cornersOfGltf(three, 3, none), solid);
    EXPECT_EQ(cornersOfGltf(three, 3, blend), solid);
    EXPECT_EQ(cornersOfGltf(four, 4, none), solid);
    EXPECT_EQ(cornersOfGltf(four, 4, blend),
              (std::vector<Color>{Color(1.0F, 0.0F, 0.0F, 0.5F), Color(0.0F, 0.5F, 0.0F, 0.0F),
                                  Color(0.0F, 0.0F, 0.25F, 1.0F)}));
}

TEST_F(ModelFolderTest, ColorsOfCornersAreMultipliedByWhatTheMaterialSays) {
    const auto factor = [](const std::string & rgba) {
        return "\"pbrMetallicRoughness\": {\"baseColorFactor\": [" + rgba + "]}";
    };
    const std::string blend = "\"alphaMode\": \"BLEND\", ";
    const std::vector<float> white(9, 1.0F), half(12, 0.5F);
    using Colors = std::vector<Color>;
    EXPECT_EQ(cornersOfGltf(white, 3, blend + factor("1, 0.25, 0, 0.5")),
              Colors(3, Color(1.0F, 0.25F, 0.0F, 0.5F)));
    EXPECT_EQ(cornersOfGltf(half, 4, blend + factor("1, 0.5, 0, 0.5")),
              Colors(3, Color(0.5F, 0.25F, 0.0F, 0.25F)));
    EXPECT_EQ(cornersOfGltf(half, 4, factor("1, 0.5, 0, 0.5")), Colors(3, Color(0.5F, 0.25F, 0.0F, 1.0F)));
    // Elsewhere they stand in the place of the material's colour, not of its opacity.
    write("model/t.mtl", "newmtl m\nKd 0.5 0.5 0.5\nd 0.25\n");
    const std::string path =
        write("model/t.obj", "mtllib t.mtl\nv 0 0 0 1 0.5 0\nv 1 0 0 1 0.5 0\nv 0 1 0 1 0.5 0\n"
                             "usemtl m\nf 1 2 3\n");
    EXPECT_EQ(colorsOf(*ModelFile::read(path).scene), Colors(3, Color(1.0F, 0.5F, 0.0F, 0.25F)));
}

TEST_F(ModelFolderTest, TexturesOfOpaqueGltfHaveNoAlpha) {
    std::ifstream stream(prism("gltf"));
    std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    fs::copy_file(modelsFolder() + "/prism.bin", top_ + "/model/prism.bin");
    fs::create_directory(top_ + "/model/textures");
    const SO<MemoryImage> picture(new MemoryImage(2, 2, LS_RGBA)); // of alpha 0
    const auto png = SO<PNGWriter>(new PNGWriter())->write(picture.get());
    write("model/textures/letter.png",
          std::string(static_cast<const char *>(png->pointer()), std::size_t{png->size()}));
    const auto layersOf = [&] {
        const Model model = ModelFile::read(write("model/a.gltf", text));
        for (const Triangle & triangle : trianglesOf(*model.scene))
            if (triangle.texture) return triangle.texture->getImage()->layerSequence();
        return LS_Alpha;
    };
    EXPECT_EQ(layersOf(), LS_RGB);
    const std::string name = "\"name\": \"letter\", ";
    text.insert(text.find(name) + name.size(), "\"alphaMode\": \"BLEND\", ");
    EXPECT_EQ(layersOf(), LS_RGBA);
}

TEST_F(ModelFolderTest, AModelMayBeALink) {
    fs::create_symlink(prism("stl"), top_ + "/model/link.stl");
    EXPECT_EQ(ModelFile::read(top_ + "/model/link.stl").triangles, 8U);
}

TEST_F(ModelFolderTest, NodesThatLieTooDeepAreLeftOutWithALine) {
    std::ifstream stream(prism("gltf"));
    std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    const std::string first = "\"nodes\": [{\"mesh\": 0,";
    const std::size_t at = text.rfind(first);
    ASSERT_NE(at, std::string::npos);
    std::string chain = "\"nodes\": [";
    for (int i = 1; i <= 450; ++i)
        chain += "{\"mesh\": 0, \"children\": [" + std::to_string(i) + "]}, ";
    text.replace(at, first.size(), chain + "{\"mesh\": 0,");
    fs::copy_file(modelsFolder() + "/prism.bin", top_ + "/model/prism.bin");
    const Model model = ModelFile::read(write("model/deep.gltf", text));
    ASSERT_FALSE(model.leftOut.empty());
    EXPECT_NE(model.leftOut[0].find("nodes that lie too deep are left out"), std::string::npos)
        << model.leftOut[0];
    EXPECT_GE(model.triangles, 8U * 400U);
}

TEST_F(ModelFolderTest, CompanionsElsewhereAreNotOpened) {
    write("outside.mtl", "newmtl m\nKd 1 0 0\n");
    const std::string text = "v 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl m\nf 1 2 3\n";
    for (const char * name : {"../outside.mtl", "link.mtl"}) {
        fs::remove(top_ + "/model/link.mtl");
        fs::create_symlink(top_ + "/outside.mtl", top_ + "/model/link.mtl");
        const Model model =
            ModelFile::read(write("model/t.obj", "mtllib " + std::string(name) + "\n" + text));
        const auto triangles = trianglesOf(*model.scene);
        ASSERT_EQ(triangles.size(), 1U);
        EXPECT_FALSE(triangles[0].color == Color::red);
        ASSERT_FALSE(model.leftOut.empty());
        EXPECT_NE(model.leftOut[0].find(name[0] == '.' ? "outside.mtl is left out" : "link.mtl is left out"),
                  std::string::npos)
            << model.leftOut[0];
    }
}

TEST_F(ModelFolderTest, WhatIsNoTriangleIsLeftOutWithALine) {
    const Model model = ModelFile::read(write("model/l.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nl 1 2\nf 1 2 3\n"));
    EXPECT_EQ(model.triangles, 1U);
    ASSERT_EQ(model.leftOut.size(), 1U);
    EXPECT_NE(model.leftOut[0].find("1 points, lines"), std::string::npos);
}

TEST_F(ModelFolderTest, TrianglesThatHaveNoPlaceAreLeftOutWithALine) {
    std::ifstream stream(prism("stl"), std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    const float none = NAN;
    std::memcpy(bytes.data() + 84 + 12, &none, sizeof none); // the first corner of the first triangle
    const Model model = ModelFile::read(write("model/nan.stl", bytes));
    EXPECT_EQ(model.triangles, 7U);
    EXPECT_EQ(model.leftOut,
              std::vector<std::string>{"1 triangles with corners that are no numbers are left out"});
    EXPECT_TRUE(std::isfinite(model.box.diagonal().length()));
}

TEST_F(ModelFolderTest, AReaderThatCrashesEndsNobodyElse) {
    answerBy("kill -SEGV $$");
    EXPECT_NE(failureOf(prism("obj")).find("its reader was ended by signal 11"), std::string::npos);
    answerBy("kill -KILL $$");
    EXPECT_NE(failureOf(prism("obj")).find("its reader was ended by signal 9"), std::string::npos);
    answerBy("exit 3");
    EXPECT_NE(failureOf(prism("obj")).find("its reader gave up"), std::string::npos);
}

TEST_F(ModelFolderTest, AReaderThatHangsIsEnded) {
    ModelOptions options;
    options.secondsLimit = 0.2;
    // With its pipe open, and without.
    for (const char * script : {"exec sleep 100", "exec >/dev/null; exec sleep 100"}) {
        answerBy(script);
        const double start = NBXTime::now();
        EXPECT_NE(failureOf(prism("obj"), options).find("took longer than 1 s"), std::string::npos);
        EXPECT_LT(NBXTime::now() - start, 10.0);
    }
}

TEST_F(ModelFolderTest, CancellingEndsTheReader) {
    answerBy("echo $$ > " + top_ + "/id; exec sleep 100");
    std::string failure;
    {
        const CancelingDisplay display;
        failure = failureOf(prism("obj"));
    }
    EXPECT_NE(failure.find("cancelled"), std::string::npos) << failure;
    int id = 0;
    if (std::ifstream(top_ + "/id") >> id) {
        EXPECT_NE(::kill(id, 0), 0);
    }
}

TEST_F(ModelFolderTest, AReaderThatSaysTooMuchOrNonsenseIsNotBelieved) {
    ModelOptions options;
    options.memoryLimit = 1 << 20;
    answerBy("exec head -c 3000000 /dev/zero");
    EXPECT_NE(failureOf(prism("obj"), options).find("holds more than may be read"), std::string::npos);
    answerBy("echo nonsense");
    EXPECT_NE(failureOf(prism("obj")).find("made no sense of it"), std::string::npos);
    answerBy("exit 0");
    EXPECT_NE(failureOf(prism("obj")).find("made no sense of it"), std::string::npos);
}

TEST_F(ModelFolderTest, AReaderThatCannotBeStartedIsAFailure) {
    ReaderProcess::setProgram(top_ + "/none");
    EXPECT_NE(failureOf(prism("obj")).find("cannot be started"), std::string::npos);
    ReaderProcess::setProgram("");
    EXPECT_FALSE(ReaderProcess::program().empty());
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(ModelFolderTest, AModelThatNeedsMoreMemoryThanItMayIsRefused) {
    std::string text;
    for (int i = 0; i < 200000; ++i)
        text += "v " + std::to_string(i) + " 0 0\n";
    for (int i = 1; i < 200000; ++i)
        text += "f 1 2 " + std::to_string(i) + "\n";
    const std::string path = write("model/large.obj", text);
    ModelOptions options;
    options.memoryLimit = std::uint64_t{60} << 20;
    const std::string failure = failureOf(path, options);
    EXPECT_NE(failure.find("it needs more memory than it may have"), std::string::npos) << failure;
    EXPECT_EQ(failureOf(path), "none");
}
#endif

TEST_F(ModelFolderTest, ReadersKnowNothingOfOurFilesAndEnvironmentLimits) {
    // Descriptors of this process are closed, and the standard input is empty.
    const SO<File> open(new File(write("open", "x")));
    answerBy("ls /proc/self/fd > " + top_ + "/files; exit 3");
    failureOf(prism("obj"));
    std::ifstream stream(top_ + "/files");
    int most = -1;
    for (int number; stream >> number;)
        most = std::max(most, number);
    EXPECT_LE(most, 3); // the folder itself
}

/// Of a triangle; behind the places stands a byte, so that places are at odd offsets.
std::string plyHead(const std::string & format, const std::string & type) {
    return "ply\nformat " + format + " 1.0\ncomment far\nelement vertex 3\nproperty " + type +
           " x\nproperty " + type + " y\nproperty " + type +
           " z\nproperty uchar intensity\nelement face 1\nproperty list uchar int "
           "vertex_indices\nend_header\n";
}

std::string plyBytes(const std::vector<Vector> & vertices, bool isBigEndian) {
    std::string bytes;
    const auto append = [&](const auto & number) {
        std::string part(reinterpret_cast<const char *>(&number), sizeof number);
        if (isBigEndian) std::reverse(part.begin(), part.end());
        bytes += part;
    };
    for (const Vector & vertex : vertices) {
        append(vertex.x);
        append(vertex.y);
        append(vertex.z);
        append('\x7f');
    }
    append('\3');
    for (const int index : {0, 1, 2})
        append(index);
    return bytes;
}

/// A triangle with corners at (0, 0, 0), (3, 0, 0) and (3, 0, 4); its node is the first of all.
std::string gltf(const std::string & transformation, const std::string & nodes = "",
                 const std::string & outermost = "0") {
    return R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[)" + outermost +
           R"(]}],"nodes":[{"mesh":0,)" + transformation + "}" + nodes +
           R"(],"meshes":[{"primitives":[{"attributes":{"POSITION":0}}]}],"accessors":[{"bufferView":0,)" +
           R"("componentType":5126,"count":3,"type":"VEC3","min":[0,0,0],"max":[3,0,4]}],"bufferViews":[)" +
           R"({"buffer":0,"byteLength":36}],"buffers":[{"byteLength":36,"uri":"data:application/octet-stream;)" +
           R"(base64,AAAAAAAAAAAAAAAAAABAQAAAAAAAAAAAAABAQAAAAAAAAIBA"}]})";
}

/// With its buffer in a part of its own.
std::string glb(std::string text) {
    const std::size_t uri = text.find(",\"uri\"");
    text.erase(uri, text.find('}', uri) - uri);
    text.resize((text.size() + 3) / 4 * 4, ' ');
    const float corners[] = {0, 0, 0, 3, 0, 0, 3, 0, 4};
    const auto bytesOf = [](const auto & values) {
        return std::string(reinterpret_cast<const char *>(values), sizeof values);
    };
    const std::uint32_t size = std::uint32_t(text.size());
    const std::uint32_t head[] = {0x46546C67, 2, 28 + size + std::uint32_t(sizeof corners), size, 0x4E4F534A};
    const std::uint32_t part[] = {sizeof corners, 0x004E4942};
    return bytesOf(head) + text + bytesOf(part) + bytesOf(corners);
}

/// Which single precision would move by up to a quarter of a metre.
TEST_F(ModelFolderTest, CoordinatesThatLoseAMillimetreAreTold) {
    const auto lineOf = [&](const std::string & file, double unit = 1.0) {
        ModelOptions options;
        options.metresPerUnit = unit;
        const Model model = ModelFile::read(file, options);
        for (const std::string & line : model.leftOut)
            if (line.find("off by up to ") != std::string::npos) return line.substr(line.find("off by"), 20);
        return std::string();
    };
    const auto ply = [&](float x) {
        const float corners[] = {x, 0, 0, x + 4, 0, 0, x, 4, 0};
        std::string bytes = plyHead("binary_little_endian", "float");
        for (unsigned i = 0; i < 3; ++i)
            bytes += std::string(reinterpret_cast<const char *>(corners + std::size_t(3) * i), 12) + '\x7f';
        const int indices[] = {0, 1, 2};
        return write("model/f.ply",
                     bytes + '\3' + std::string(reinterpret_cast<const char *>(indices), sizeof indices));
    };
    EXPECT_EQ(lineOf(ply(16000.0F)), "");
    EXPECT_EQ(lineOf(ply(1600000.0F), 0.01), "");
    EXPECT_EQ(lineOf(ply(-160000.0F)), "off by up to 0.0095 ");
    EXPECT_EQ(lineOf(ply(5800000.0F)), "off by up to 0.35 m:");
    EXPECT_EQ(lineOf(write("model/n.gltf", gltf("\"translation\":[5800000.1,0,0]"))), "");
    EXPECT_EQ(lineOf(write("model/d.dae",
                           [] {
                               std::ifstream stream(prism("dae"));
                               std::string text((std::istreambuf_iterator<char>(stream)),
                                                std::istreambuf_iterator<char>());
                               const std::size_t at = text.find("<translate>");
                               return text.insert(
                                   at, "<rotate>0 0 1 90</rotate><translate>5800000.1 0 0</translate>");
                           }()))
                  .substr(0, 17),
              "off by up to 0.35");
}

TEST_F(ModelFolderTest, CoordinatesOfMapsKeepTheirMillimetres) {
    const Vector far(468123.456, 5803210.789, 34.567);
    const auto number = [](double x) {
        char text[40];
        std::snprintf(text, sizeof text, "%.6f", x);
        return std::string(text);
    };
    const auto vertex = [&](double east, double north) {
        return number(far.x + east) + " " + number(far.y + north) + " " + number(far.z);
    };
    const std::string first = vertex(0, 0), second = vertex(1.001, 0), third = vertex(0, 2.002);
    std::ifstream stream(prism("dae"));
    const std::string dae((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    const auto with = [&](const std::string & transformation) {
        std::string text = dae;
        const std::size_t begin = text.find("<translate>"), end = text.find("</translate>") + 12;
        return text.replace(begin, end - begin, transformation);
    };
    std::string vertices = with("");
    const std::size_t array = vertices.find("0 0 0 3 0 0 3 0 4 0 0 0 3 0 4 0 0 4"); // of the southern wall
    ASSERT_NE(array, std::string::npos);
    // The first three of its corners.
    vertices.replace(array, 17, first + " " + second + " " + third);
    const std::string place = number(far.x) + " " + number(far.y) + " " + number(far.z);
    struct Case {
        std::string path;
        bool isTriangle;
        bool hasNearOnes = false; ///< as well, which are far from the others
    };
    const Case cases[] = {
        {write("model/t.obj",
               "o far\nv " + first + "\n\tv\t" + second + " 1 0 0\r\nv " + third + "\nf 1 2 3\n"),
         true},
        {write("model/v.dae", vertices), true, true},
        {write("model/t.dae", with("<translate>" + place + "</translate>")), false},
        {write("model/m.dae", with("<matrix>1 0 0 " + number(far.x) + " 0 1 0 " + number(far.y) + " 0 0 1 " +
                                   number(far.z) + " 0 0 0 1</matrix>")),
         false},
        {write("model/t.ply",
               plyHead("ascii", "float") + first + " 255\n" + second + " 255\n" + third + " 255\n3 0 1 2\n"),
         true},
        {write("model/l.ply",
               plyHead("binary_little_endian", "double") +
                   plyBytes({far, far + Vector(1.001, 0, 0), far + Vector(0, 2.002, 0)}, false)),
         true},
        {write("model/b.ply",
               plyHead("binary_big_endian", "double") +
                   plyBytes({far, far + Vector(1.001, 0, 0), far + Vector(0, 2.002, 0)}, true)),
         true},
        {write("model/t.gltf",
               gltf("\"translation\":[" + number(far.x) + "," + number(far.y) + "," + number(far.z) + "]")),
         false},
        {write("model/t.glb", glb(gltf("\"matrix\":[1,0,0,0,0,1,0,0,0,0,1,0," + number(far.x) + "," +
                                       number(far.y) + "," + number(far.z) + ",1]"))),
         false},
        // A quarter turn about x in a node above, and one beside.
        {write("model/n.gltf",
               gltf("\"translation\":[" + number(far.x) + "," + number(far.z) + "," + number(-far.y) +
                        "],\"rotation\":[-0.7071067811865476,0,0,0.7071067811865476]",
                    ",{\"rotation\":[0.7071067811865476,0,0,0.7071067811865476],\"children\":[0]},"
                    "{\"name\":\"beside\"}",
                    "1,2")),
         false}};
    for (const Case & c : cases) {
        SCOPED_TRACE(c.path);
        ModelOptions options;
        options.up = ModelUp::Z;
        const Model model = ModelFile::read(c.path, options);
        for (const std::string & line : model.leftOut)
            EXPECT_EQ(line.find("off by") != std::string::npos, c.hasNearOnes) << line;
        const Triangle triangle = trianglesOf(*model.scene).at(0);
        const Vector origin(far.x, far.z, far.y);
        const Vector expected[] = {{},
                                   c.isTriangle ? Vector(1.001, 0, 0) : Vector(3, 0, 0),
                                   c.isTriangle ? Vector(0, 0, 2.002) : Vector(3, 4, 0)};
        for (unsigned k = 0; k < 3; ++k)
            EXPECT_LT((triangle.corners[k] - origin - expected[k]).length(), 0.0005) << k;
    }
}
