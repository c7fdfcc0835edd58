// The one place that knows the library of readers. What it makes of a file is taken over as it is: a scene of
// nodes, meshes and materials, in the axes and units of the file, for which some formats have to be freed of
// what the library did on its own. Nothing is judged here but what would be read beyond its end: the other
// side trusts no answer.

#include "modelimport.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <new>
#include <optional>
#include <sstream>

#include <assimp/BaseImporter.h>
#include <assimp/GltfMaterial.h>
#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/importerdesc.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <pugixml.hpp>

#include "farmodels.h"
#include "gltfplaces.h"
#include "guardedfiles.h"

namespace NBX {

namespace {

/// Nodes below nodes; the library itself walks them by recursion.
constexpr unsigned s_deepest = 400;
constexpr std::size_t s_longestPlyHead = std::size_t{1} << 20;

std::string textOf(const aiString & text) {
    return std::string(text.data, std::min<std::size_t>(text.length, MAXLEN - 1));
}

bool isGltfSuffix(const std::string & suffix) {
    return suffix == "gltf" || suffix == "glb";
}

/// Leaves only the readers of one kind of file.
void keepReadersOf(Assimp::Importer & importer, const std::string & suffix) {
    for (std::size_t i = importer.GetImporterCount(); i-- > 0;) {
        const std::string suffixes = std::string(" ") + importer.GetImporterInfo(i)->mFileExtensions + " ";
        if (suffixes.find(" " + suffix + " ") == std::string::npos)
            importer.UnregisterLoader(importer.GetImporter(i));
    }
}

/// What the file says of its axes and its unit.
void readColladaAsset(const std::string & path, ModelAnswer & answer) {
    pugi::xml_document document;
    if (!document.load_file(path.c_str())) return;
    const pugi::xml_node asset = document.child("COLLADA").child("asset");
    const std::string up = asset.child("up_axis").text().get();
    answer.up = up.find("Z_UP") != std::string::npos   ? ModelAnswer::U_Z
                : up.find("X_UP") != std::string::npos ? ModelAnswer::U_X
                                                       : ModelAnswer::U_Y;
    const double unit = asset.child("unit").attribute("meter").as_double(1.0);
    answer.unit = unit > 0.0 && std::isfinite(unit) ? unit : 1.0;
}

void readFbxAxes(const aiScene & scene, ModelAnswer & answer) {
    if (!scene.mMetaData) return;
    std::int32_t up = -1;
    if (scene.mMetaData->Get("UpAxis", up) && up >= 0 && up <= 2)
        answer.up = std::array{ModelAnswer::U_X, ModelAnswer::U_Y, ModelAnswer::U_Z}[std::size_t(up)];
    double centimetres = 0.0;
    float single = 0.0F;
    if (!scene.mMetaData->Get("UnitScaleFactor", centimetres) &&
        scene.mMetaData->Get("UnitScaleFactor", single))
        centimetres = std::strtod(std::to_string(single).c_str(), nullptr); // 2.54, not its neighbour
    if (centimetres > 0.0 && std::isfinite(centimetres)) answer.unit = 0.01 * centimetres;
}

/// Undoes what the library has put on the root by itself.
void freeRoot(aiNode & root, const std::string & suffix) {
    if (suffix == "dae") {
        // The unit, as a scale. The root is the visual scene, which has no transformation of its own.
        root.mTransformation = aiMatrix4x4();
    } else if (suffix == "3ds") {
        // A quarter turn that brings z upwards to y.
        const aiMatrix4x4 back(1, 0, 0, 0, 0, 0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1);
        root.mTransformation = back * root.mTransformation;
    }
}

std::uint32_t wrapOf(aiTextureMapMode mode) {
    return mode == aiTextureMapMode_Clamp || mode == aiTextureMapMode_Decal ? ModelAnswer::W_ClampToEdge
           : mode == aiTextureMapMode_Mirror                                ? ModelAnswer::W_MirroredRepeat
                                                                            : ModelAnswer::W_Repeat;
}

/// The texture that gives the colour; its coordinates are those of the set `uv`.
void takeTexture(const aiScene & scene, const aiMaterial & from, ModelAnswer::Material & material,
                 unsigned & uv) {
    for (const aiTextureType type : {aiTextureType_BASE_COLOR, aiTextureType_DIFFUSE}) {
        aiString path;
        aiTextureMapMode modes[3] = {aiTextureMapMode_Wrap, aiTextureMapMode_Wrap, aiTextureMapMode_Wrap};
        if (from.GetTexture(type, 0, &path, nullptr, &uv, nullptr, nullptr, modes) != aiReturn_SUCCESS)
            continue;
        material.texture = textOf(path);
        material.wrapS = wrapOf(modes[0]);
        material.wrapT = wrapOf(modes[1]);
        if (const aiTexture * embedded = scene.GetEmbeddedTexture(path.C_Str()))
            for (unsigned i = 0; i < scene.mNumTextures; ++i)
                if (scene.mTextures[i] == embedded) material.embedded = static_cast<std::int32_t>(i);
        return;
    }
}

/// Whether the alpha of a glTF means nothing.
bool isOpaque(const aiMaterial & material) {
    aiString mode;
    return material.Get(AI_MATKEY_GLTF_ALPHAMODE, mode) == aiReturn_SUCCESS && textOf(mode) == "OPAQUE";
}

/// Where a texture gives the colour, most formats do not multiply it by another one.
void takeColor(const aiMaterial & from, const std::string & suffix, ModelAnswer::Material & material) {
    const bool isGltf = isGltfSuffix(suffix);
    aiColor4D color(0.8F, 0.8F, 0.8F, 1.0F);
    if (!isGltf || from.Get(AI_MATKEY_BASE_COLOR, color) != aiReturn_SUCCESS)
        from.Get(AI_MATKEY_COLOR_DIFFUSE, color);
    const bool isTextured = !material.texture.empty();
    const bool isBlack = color.r == 0.0F && color.g == 0.0F && color.b == 0.0F;
    if (isTextured && !isGltf && (suffix != "obj" || isBlack)) color.r = color.g = color.b = 1.0F;
    float opacity = isGltf ? color.a : 1.0F;
    if (!isGltf)
        from.Get(AI_MATKEY_OPACITY, opacity);
    else if (isOpaque(from)) {
        opacity = 1.0F;
        material.isOpaque = 1;
    }
    material.color = {color.r, color.g, color.b, opacity};
    aiColor3D specular(0.0F, 0.0F, 0.0F);
    from.Get(AI_MATKEY_COLOR_SPECULAR, specular);
    material.specular = {specular.r, specular.g, specular.b};
    from.Get(AI_MATKEY_SHININESS, material.shininess);
}

ModelAnswer::Texture takeEmbedded(const aiTexture & from, std::size_t number) {
    ModelAnswer::Texture texture;
    texture.name = textOf(from.mFilename);
    if (texture.name.empty()) texture.name = "embedded " + std::to_string(number);
    const auto * data = reinterpret_cast<const std::uint8_t *>(from.pcData);
    if (!data) return texture;
    if (from.mHeight == 0) {
        texture.bytes.assign(data, data + from.mWidth);
        return texture;
    }
    texture.width = from.mWidth;
    texture.height = from.mHeight;
    const std::size_t pixels = std::size_t{from.mWidth} * from.mHeight;
    texture.bytes.reserve(4 * pixels);
    for (std::size_t i = 0; i < pixels; ++i)
        for (const std::uint8_t c : {from.pcData[i].r, from.pcData[i].g, from.pcData[i].b, from.pcData[i].a})
            texture.bytes.push_back(c);
    return texture;
}

void takeVectors(const aiVector3D * from, unsigned count, unsigned components, std::vector<float> & to) {
    if (!from) return;
    to.reserve(std::size_t{count} * components);
    for (unsigned i = 0; i < count; ++i)
        for (unsigned c = 0; c < components; ++c)
            to.push_back(from[i][c]);
}

/// Colours of three components come out of a glTF with an alpha of 0. None has it at all corners by intent:
/// nothing would be seen of the mesh.
bool hasNoAlpha(const aiMesh & mesh) {
    return std::all_of(mesh.mColors[0], mesh.mColors[0] + mesh.mNumVertices,
                       [](const aiColor4D & color) { return color.a == 0.0F; });
}

/// Colours at corners displace that of the material: in a glTF they multiply it, in other formats they stand
/// in its place, but not in that of its opacity.
void takeColors(const aiMesh & from, const ModelAnswer::Material & material, bool isGltf,
                std::vector<float> & to) {
    if (!from.mColors[0]) return;
    const bool isSolid = isGltf && (material.isOpaque || hasNoAlpha(from));
    std::array<float, 4> factor = material.color;
    if (!isGltf) factor[0] = factor[1] = factor[2] = 1.0F;
    to.reserve(std::size_t{4} * from.mNumVertices);
    for (unsigned i = 0; i < from.mNumVertices; ++i) {
        const aiColor4D & color = from.mColors[0][i];
        to.insert(to.end(), {factor[0] * color.r, factor[1] * color.g, factor[2] * color.b,
                             factor[3] * (isSolid ? 1.0F : color.a)});
    }
}

/// Triangles alone; the number of other faces is added to `others`.
ModelAnswer::Mesh takeMesh(const aiMesh & from, unsigned uv, std::uint64_t & others) {
    ModelAnswer::Mesh mesh;
    mesh.name = textOf(from.mName);
    mesh.material = from.mMaterialIndex;
    takeVectors(from.mVertices, from.mNumVertices, 3, mesh.positions);
    takeVectors(from.mNormals, from.mNumVertices, 3, mesh.normals);
    if (uv < AI_MAX_NUMBER_OF_TEXTURECOORDS)
        takeVectors(from.mTextureCoords[uv], from.mNumVertices, 2, mesh.coordinates);
    for (unsigned i = 0; i < from.mNumFaces; ++i) {
        const aiFace & face = from.mFaces[i];
        const bool isTriangle =
            face.mNumIndices == 3 && std::all_of(face.mIndices, face.mIndices + 3,
                                                 [&](unsigned index) { return index < from.mNumVertices; });
        if (isTriangle)
            mesh.triangles.insert(mesh.triangles.end(), face.mIndices, face.mIndices + 3);
        else
            ++others;
    }
    return mesh;
}

/// Whether `exact` is what the library has made of it, within its single precision.
bool isSame(const std::array<double, 16> & exact, const std::array<double, 16> & single) {
    for (std::size_t i = 0; i < exact.size(); ++i)
        if (!(std::abs(exact[i] - single[i]) <= 1e-5 + 1e-6 * std::abs(exact[i]))) return false;
    return true;
}

/// The nodes below come behind it. Those that lie too deep are counted in `tooDeep`. `place` is the node as
/// the file has it, null where that is not known.
void takeNode(const aiNode & from, const GltfPlaces::Node * place, std::int32_t parent, unsigned depth,
              ModelAnswer & answer, std::uint64_t & tooDeep) {
    if (depth > s_deepest) {
        ++tooDeep;
        return;
    }
    ModelAnswer::Node node;
    node.parent = parent;
    node.name = textOf(from.mName);
    for (unsigned r = 0; r < 4; ++r)
        for (unsigned c = 0; c < 4; ++c)
            node.matrix[4 * r + c] = double(from.mTransformation[r][c]);
    if (place && (place->children() != from.mNumChildren || !isSame(place->matrix(), node.matrix)))
        place = nullptr;
    if (place) node.matrix = place->matrix();
    node.isExact = place ? 1 : 0;
    node.meshes.assign(from.mMeshes, from.mMeshes + from.mNumMeshes);
    const auto number = static_cast<std::int32_t>(answer.nodes.size());
    answer.nodes.push_back(node);
    for (unsigned i = 0; i < from.mNumChildren; ++i) {
        const GltfPlaces::Node below = place ? place->child(i) : GltfPlaces::Node();
        takeNode(*from.mChildren[i], place ? &below : nullptr, number, depth + 1, answer, tooDeep);
    }
}

void tellLeftOut(std::uint64_t count, const char * what, ModelAnswer & answer) {
    if (count != 0) answer.leftOut.push_back(std::to_string(count) + " " + what + " left out");
}

void takeScene(const aiScene & scene, const std::string & suffix, const GltfPlaces::Node * root,
               ModelAnswer & answer) {
    for (unsigned i = 0; i < scene.mNumTextures; ++i)
        answer.textures.push_back(takeEmbedded(*scene.mTextures[i], i));
    std::vector<unsigned> uv(scene.mNumMaterials, 0);
    for (unsigned i = 0; i < scene.mNumMaterials; ++i) {
        const aiMaterial & from = *scene.mMaterials[i];
        ModelAnswer::Material material;
        aiString name;
        if (from.Get(AI_MATKEY_NAME, name) == aiReturn_SUCCESS) material.name = textOf(name);
        takeTexture(scene, from, material, uv[i]);
        takeColor(from, suffix, material);
        answer.materials.push_back(material);
    }
    std::uint64_t others = 0, tooDeep = 0, bones = 0;
    for (unsigned i = 0; i < scene.mNumMeshes; ++i) {
        const aiMesh & mesh = *scene.mMeshes[i];
        const unsigned set = mesh.mMaterialIndex < uv.size() ? uv[mesh.mMaterialIndex] : 0;
        answer.meshes.push_back(takeMesh(mesh, set, others));
        if (mesh.mMaterialIndex < scene.mNumMaterials)
            takeColors(mesh, answer.materials[mesh.mMaterialIndex], isGltfSuffix(suffix),
                       answer.meshes.back().colors);
        bones += mesh.mNumBones;
    }
    takeNode(*scene.mRootNode, root, -1, 0, answer, tooDeep);
    tellLeftOut(others, "points, lines and faces that are no triangles are", answer);
    tellLeftOut(tooDeep, "nodes that lie too deep are", answer);
    tellLeftOut(bones, "bones are", answer);
    tellLeftOut(scene.mNumAnimations, "animations are", answer);
    tellLeftOut(scene.mNumCameras, "cameras are", answer);
    tellLeftOut(scene.mNumLights, "lights are", answer);
}

/// Without the end of its head the library looks for it for ever.
bool hasPlyHead(const std::string & path) {
    std::ifstream stream(path, std::ios::binary);
    std::string head(s_longestPlyHead, '\0');
    stream.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(stream.gcount()));
    return head.find("\nend_header") != std::string::npos || head.find("\rend_header") != std::string::npos;
}

std::string contentsOf(const std::string & path) {
    std::ifstream stream(path, std::ios::binary);
    std::stringstream text;
    text << stream.rdbuf();
    return text.str();
}

std::optional<NearModel> nearModel(const std::string & path, const std::string & suffix) {
    if (suffix == "obj") return nearObj(contentsOf(path));
    if (suffix == "dae") return nearCollada(contentsOf(path));
    if (suffix == "ply") return nearPly(contentsOf(path));
    return std::nullopt;
}

/// Puts back what the coordinates of a far model have lost.
void moveBack(const std::array<double, 3> & origin, ModelAnswer::Node & root) {
    for (unsigned r = 0; r < 3; ++r)
        for (unsigned c = 0; c < 4; ++c)
            root.matrix[4 * r + c] += origin[r] * root.matrix[12 + c];
    root.isExact = 1;
}

ModelAnswer import(const std::string & path, const std::string & suffix) {
    ModelAnswer answer;
    if (suffix == "ply" && !hasPlyHead(path)) {
        answer.failure = "its head has no end";
        return answer;
    }
    Assimp::Importer importer;
    keepReadersOf(importer, suffix);
    auto * files = new GuardedFiles(path); // the importer owns it
    importer.SetIOHandler(files);
    const std::optional<NearModel> close = nearModel(path, suffix);
    if (close) files->setModelText(&close->text);
    importer.SetPropertyBool(AI_CONFIG_IMPORT_COLLADA_IGNORE_UP_DIRECTION, true);
    importer.SetPropertyBool(AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, false);
    const aiScene * scene = importer.ReadFile(path, aiProcess_Triangulate | aiProcess_TransformUVCoords);
    answer.leftOut = files->notOpened();
    if (!scene || !scene->mRootNode) {
        answer.failure = importer.GetErrorString();
        if (answer.failure.empty()) answer.failure = "it holds no model";
        // The library catches that by itself.
        if (answer.failure.find("bad_alloc") != std::string::npos) answer.failure = s_tooMuchMemory;
        return answer;
    }
    if (suffix == "dae") readColladaAsset(path, answer);
    if (suffix == "fbx") readFbxAxes(*scene, answer);
    freeRoot(*scene->mRootNode, suffix);
    const GltfPlaces places(isGltfSuffix(suffix) ? contentsOf(path) : std::string());
    const GltfPlaces::Node root = places.root();
    takeScene(*scene, suffix, isGltfSuffix(suffix) ? &root : nullptr, answer);
    if (close) moveBack(close->origin, answer.nodes.front());
    return answer;
}

} // namespace

ModelAnswer importModel(const std::string & path, const std::string & suffix) {
    ModelAnswer answer;
    try {
        return import(path, suffix);
    } catch (const std::bad_alloc &) {
        answer.failure = s_tooMuchMemory;
    } catch (const std::exception & failure) {
        answer.failure = failure.what();
    } catch (...) {
        answer.failure = "it is damaged";
    }
    return answer;
}

} // namespace NBX
