// Step by step: every shape is turned into polygon sets; each set that is found is attached to the texture in
// force for it; then the sets of each texture are joined into one mesh, in the order of finding. Textures are
// told apart by file name and wrap modes, or in memory by object, and numbered by first meeting, never by
// address.

#include "trianglecollector.h"

#include <atomic>
#include <cmath>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include <nbx/analysis/scenegraphanalyzer.h>
#include <nbx/container/sequence/array.h>
#include <nbx/container/sequence/constantiterator.h>
#include <nbx/gl/texture/textureunitsettinggl.h>
#include <nbx/image/encodedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/isfinite.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/shapematerial.h>
#include <nbx/scene/shape/polygonsettool.h>

#include "core/texturedtriangles/modelnumber.h"
#include "repeatsplit.h"

namespace ZMT::CORE {

using NBX::Array;
using NBX::Color;
using NBX::ImageTexture2DGL;
using NBX::Iterator;
using NBX::PolygonSet;
using NBX::SO;
using NBX::TextureGL;

namespace {

using TexturedMesh = TriangleCollector::TexturedMesh;
using Vector = NBX::Vector3Base<double>;
using Matrix = NBX::Matrix4x4Base<double>;

std::atomic<std::uint64_t> s_splits{0};

/// A polygon set under its texture.
struct Part {
    SO<PolygonSet> geometry; ///< triangles without indices
    SO<PolygonSet::Colors> colors;
    Matrix matrix, textureMatrix; ///< to the scene, and to the texture
    double model = ModelNumber::none;
};

struct MeshParts {
    SO<TextureWrapper> texture;
    std::vector<Part> parts;
};

/// What could not be taken as it is, over all meshes.
struct Losses {
    std::uint64_t triangles = 0;          ///< with corners that are no numbers
    std::uint64_t texCoords = 0;          ///< triangles with coordinates that are no numbers
    std::uint64_t sets = 0;               ///< whose image cannot be read
    std::uint64_t repeatingTriangles = 0; ///< that would fall into too many pieces

    void report() const {
        if (triangles > 0)
            NBX_FAILURE(triangles << L" triangles with corners that are no numbers are left out");
        if (texCoords > 0)
            NBX_FAILURE(texCoords << L" triangles have texture coordinates that are no numbers; 0 stands in");
        if (sets > 0) NBX_FAILURE(sets << L" polygon sets whose image cannot be read are without texture");
        if (repeatingTriangles > 0)
            NBX_FAILURE(repeatingTriangles << L" triangles repeat their texture too often to be split");
    }
};

/// 128 by 128 white texels, so that the colours of vertices show unchanged.
SO<ImageTexture2DGL> defaultTexture() {
    constexpr int side = 128;
    const SO<NBX::Image> image(new NBX::MemoryImage(side, side, NBX::LS_RGBA));
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x)
            image->setColor(x, y, Color::white);
    const SO<ImageTexture2DGL> texture(new ImageTexture2DGL(image));
    texture->setBorderColor(Color(0.0F, 0.0F, 0.0F, 0.0F));
    return texture;
}

/// The wrappers by first meeting.
class FoundTextures {
public:
    /// The wrapper of what is in force; null for no texture, and for one whose image cannot be read.
    /// `textureMatrix` is what the coordinates have to go through before they fit to the wrapper.
    SO<TextureWrapper> wrapperOf(const NBX::AttributeContext & context, Matrix & textureMatrix) {
        SO<TextureWrapper> wrapper = inForce(context, textureMatrix);
        if (!wrapper || wrapper->getWidth() > 0) return wrapper;
        ++unreadable;
        return nullptr;
    }

    std::uint64_t unreadable = 0; ///< how often that was so

private:
    struct Entry {
        SO<ImageTexture2DGL> texture;
        SO<TextureWrapper> wrapper;
    };

    SO<TextureWrapper> inForce(const NBX::AttributeContext & context, Matrix & textureMatrix) {
        const auto * setting = context.get<NBX::TextureUnitSettingGL>(NBX::TextureUnitSettingGL::category(0));
        NBX::MonoAttribute * attribute =
            setting ? setting->texture() : context.mono(TextureGL::ClassNameNBX());
        if (auto * wrapper = dynamic_cast<TextureWrapper *>(attribute)) return known(*wrapper);
        auto * texture = dynamic_cast<ImageTexture2DGL *>(attribute);
        if (!texture) return nullptr;
        const auto [entry, isNew] = byTexture_.try_emplace(texture);
        if (isNew) entry->second = {SO<ImageTexture2DGL>(texture), newWrapper(*texture)};
        const SO<TextureWrapper> & wrapper = entry->second.wrapper;
        if (wrapper->isExtern()) textureMatrix = texture->getMatrix();
        return wrapper;
    }

    SO<TextureWrapper> known(TextureWrapper & wrapper) {
        if (wrapper.isExtern())
            return byFile_
                .try_emplace({wrapper.getFileName(), wrapper.getWrapS(), wrapper.getWrapT()},
                             SO<TextureWrapper>(&wrapper))
                .first->second;
        const SO<ImageTexture2DGL> texture = wrapper.getTexture();
        return byTexture_.try_emplace(texture.get(), Entry{texture, SO<TextureWrapper>(&wrapper)})
            .first->second.wrapper;
    }

    SO<TextureWrapper> newWrapper(ImageTexture2DGL & texture) {
        const auto encoded = NBX::soCast<NBX::EncodedImage>(texture.getImage());
        const std::wstring name =
            encoded ? NBX::StringUtils::Utf8String2WString(encoded->fileName()) : std::wstring();
        const bool isReadable = !encoded || encoded->failure().empty();
        if (isReadable && name.empty()) return new TextureWrapper(SO<ImageTexture2DGL>(&texture));
        if (!isReadable) return new TextureWrapper(name, texture.getWrapS(), texture.getWrapT(), 0, 0);
        const auto [entry, isNew] = byFile_.try_emplace({name, texture.getWrapS(), texture.getWrapT()});
        if (isNew)
            entry->second = new TextureWrapper(name, texture.getWrapS(), texture.getWrapT(), encoded->width(),
                                               encoded->height());
        return entry->second;
    }

    /// What goes on otherwise beyond its edges is another texture, with triangles of its own.
    using FileTexture = std::tuple<std::wstring, TextureGL::WrapMode, TextureGL::WrapMode>;
    std::map<FileTexture, SO<TextureWrapper>> byFile_;
    std::unordered_map<const ImageTexture2DGL *, Entry> byTexture_;
};

/// What vertices without a colour of their own have. Without light a material is seen as its colour; under a
/// texture it only lets through.
Color colorInForce(const NBX::AttributeContext & context, bool isTextured) {
    if (const auto * color = context.get<NBX::ColorAttribute>(NBX::ColorAttribute::ClassNameNBX()))
        return color->getColor();
    const auto * material = context.get<NBX::ShapeMaterial>(NBX::ShapeMaterial::ClassNameNBX());
    if (!material) return Color::white;
    const Color & color = material->getAmbientAndDiffuse();
    return isTextured ? Color(1.0F, 1.0F, 1.0F, color[3]) : color;
}

double modelInForce(const NBX::AttributeContext & context) {
    const auto * number = context.get<ModelNumber>(ModelNumber::ClassNameNBX());
    return number ? number->number() : ModelNumber::none;
}

SO<PolygonSet::Vertices> modelNumbers(const std::vector<double> & models) {
    std::vector<Vector> result;
    result.reserve(models.size());
    for (const double model : models)
        result.emplace_back(model, 0.0, 0.0);
    return new Array<Vector>(std::move(result));
}

/// (0, 0), (1, 0), (0.5, 1) for each triangle.
SO<PolygonSet::Vertices> defaultTexCoords(unsigned triangles) {
    std::vector<Vector> result;
    result.reserve(std::size_t(triangles) * 3);
    for (unsigned i = 0; i < triangles; ++i)
        result.insert(result.end(), {Vector(0, 0, 0), Vector(1, 0, 0), Vector(0.5, 1, 0)});
    return new Array<Vector>(std::move(result));
}

/// The set as triangles without indices, with those of its sequences that fit; null for one without vertices.
SO<PolygonSet> trianglesOf(const PolygonSet * set) {
    SO<PolygonSet> mesh = NBX::PolygonSetTool::extractTriangleMesh(set, false);
    const SO<PolygonSet::Vertices> vertices = mesh ? mesh->newVertexIterator() : nullptr;
    if (!vertices || vertices->isEmpty()) return nullptr;
    const SO<PolygonSet::Colors> colors = mesh->newColorIterator();
    const SO<PolygonSet::Vertices> texCoords = mesh->newTextureIterator(0);
    if (colors && colors->size() != vertices->size()) {
        NBX_REPORT(0, L"colors->size()==vertices->size()", L"invalid polygon set");
        mesh->setColorIterator(nullptr);
    }
    if (texCoords && texCoords->size() != vertices->size()) {
        NBX_REPORT(0, L"texCoords && texCoords->size()==vertices->size()", L"invalid polygon set");
        mesh->setTextureIterator(nullptr, 0);
    }
    if (mesh->newIndexIterator()) mesh = NBX::PolygonSetTool::convertToNonIndexedForm(mesh.get());
    return mesh && mesh->triangles() > 0 ? mesh : nullptr;
}

/// Coordinates stay as they are along an axis on which the texture ends at its edges.
double wholeRepeats(double least, TextureGL::WrapMode mode) {
    if (mode == TextureGL::WM_Repeat) return std::trunc(least);
    if (mode == TextureGL::WM_MirroredRepeat) return std::trunc(least / 2.0) * 2.0;
    return 0.0;
}

void normalize(std::array<Vector, 3> & t, const TextureWrapper & texture) {
    const double s = wholeRepeats(std::min({t[0].x, t[1].x, t[2].x}), texture.getWrapS());
    const double r = wholeRepeats(std::min({t[0].y, t[1].y, t[2].y}), texture.getWrapT());
    for (Vector & coordinate : t)
        coordinate -= Vector(s, r, 0.0);
}

class Collection {
public:
    Collection(double maxTextureRepeat, bool uniqueParameterization, bool splitRepeats)
        : maxTextureRepeat_(maxTextureRepeat), unique_(uniqueParameterization), splitRepeats_(splitRepeats) {}

    void add(const NBX::FoundObject & found) {
        const SO<PolygonSet> set = trianglesOf(dynamic_cast<const PolygonSet *>(found.object().get()));
        if (!set) return;
        Part part{set, set->newColorIterator(), found.matrix(), {}, modelInForce(*found.context())};
        hasModels_ = hasModels_ || part.model != ModelNumber::none;
        if (unique_ && !set->newTextureIterator(0))
            set->setTextureIterator(defaultTexCoords(set->triangles()), 0);
        SO<TextureWrapper> texture;
        if (set->newTextureIterator(0)) texture = textures_.wrapperOf(*found.context(), part.textureMatrix);
        if (!part.colors)
            part.colors = new NBX::ConstantIterator<Color>(colorInForce(*found.context(), bool(texture)),
                                                           set->newVertexIterator()->size());
        partsOf(texture).parts.push_back(std::move(part));
    }

    /// Empties the parts. Null where no triangle is left, and after a cancel.
    SO<PolygonSet> join(MeshParts & mesh, NBX::Progress & progress) {
        TriangleLists lists;
        for (Part & part : mesh.parts) {
            append(part, mesh.texture.get(), lists);
            part = Part();
            if (!progress.update(progress.currentValue() + 1.0)) return nullptr;
        }
        mesh.parts.clear();
        if (lists.vertices.empty()) return nullptr;
        if (mesh.texture && maxTextureRepeat_ > 0.0) {
            const RepeatSplit::Result result = RepeatSplit::apply(lists, maxTextureRepeat_);
            s_splits += result.splits;
            losses_.repeatingTriangles += result.leftWhole;
        }
        const SO<PolygonSet> set(
            new PolygonSet(PolygonSet::PT_Triangles, new Array<Vector>(std::move(lists.vertices))));
        set->setColorIterator(new Array<Color>(std::move(lists.colors)));
        if (mesh.texture) set->setTextureIterator(new Array<Vector>(std::move(lists.texCoords)), 0);
        if (hasModels_) set->setTextureIterator(modelNumbers(lists.models), ModelNumber::unit);
        return set;
    }

    std::vector<MeshParts> & meshes() { return meshes_; }

    /// Told once all is joined.
    void reportLosses() {
        losses_.sets = textures_.unreadable;
        losses_.report();
    }

private:
    MeshParts & partsOf(const SO<TextureWrapper> & texture) {
        const auto [entry, isNew] = numbers_.try_emplace(texture.get(), meshes_.size());
        if (isNew) meshes_.push_back({texture, {}});
        return meshes_[entry->second];
    }

    void append(const Part & part, const TextureWrapper * texture, TriangleLists & lists) {
        const SO<PolygonSet::Vertices> vertices = part.geometry->newVertexIterator();
        const SO<PolygonSet::Vertices> texCoords = part.geometry->newTextureIterator(0);
        for (unsigned i = 0; i + 2 < vertices->size(); i += 3) {
            std::array<Vector, 3> corners, t;
            for (unsigned k = 0; k < 3; ++k) {
                corners[k] = part.matrix * vertices->get(i + k);
                if (texture) t[k] = part.textureMatrix * texCoords->get(i + k);
            }
            if (!allFinite(corners)) {
                ++losses_.triangles;
                continue;
            }
            lists.vertices.insert(lists.vertices.end(), corners.begin(), corners.end());
            for (unsigned k = 0; k < 3; ++k)
                lists.colors.push_back(part.colors->get(i + k));
            if (hasModels_) lists.models.insert(lists.models.end(), 3, part.model);
            if (texture) appendTexCoords(t, *texture, lists);
        }
    }

    void appendTexCoords(std::array<Vector, 3> & t, const TextureWrapper & texture, TriangleLists & lists) {
        if (!allFinite(t)) {
            ++losses_.texCoords;
            t = {};
        }
        if (splitRepeats_) normalize(t, texture);
        lists.texCoords.insert(lists.texCoords.end(), t.begin(), t.end());
    }

    static bool allFinite(const std::array<Vector, 3> & v) {
        return NBX::isFinite(v[0]) && NBX::isFinite(v[1]) && NBX::isFinite(v[2]);
    }

    Losses losses_;
    double maxTextureRepeat_;
    bool unique_, splitRepeats_;
    bool hasModels_ = false; ///< then all meshes tell, as those of a tree are joined
    FoundTextures textures_;
    std::vector<MeshParts> meshes_; ///< by first meeting
    std::unordered_map<const TextureWrapper *, std::size_t> numbers_;
};

} // namespace

SO<Iterator<TexturedMesh>> TriangleCollector::collect(SO<NBX::SceneThing> scene, SO<PolygonSet> & untextured,
                                                      double maxTextureRepeat, bool uniqueParameterization,
                                                      bool splitRepeats) {
    const SO<NBX::NonPersistentArray<TexturedMesh>> result(new NBX::NonPersistentArray<TexturedMesh>());
    untextured = nullptr;
    NBX_CHECK(scene, L"no scene");
    if (!scene) return result;
    NBX::SceneGraphAnalyzer::forceShapeType(scene.get(), 0);
    if (uniqueParameterization) scene->prepend(defaultTexture().get());
    Collection collection(maxTextureRepeat, uniqueParameterization, splitRepeats);
    const SO<Iterator<SO<NBX::FoundObject>>> sets =
        NBX::SceneGraphAnalyzer::findObjects(PolygonSet::ClassNameNBX(), scene.get(), false);
    NBX::Progress progress("collecting triangles", 2.0 * sets->size());
    double done = 0.0;
    for (const SO<NBX::FoundObject> & found : *sets) {
        collection.add(*found);
        if (!progress.update(++done)) return nullptr;
    }
    for (MeshParts & mesh : collection.meshes()) {
        const SO<PolygonSet> set = collection.join(mesh, progress);
        if (progress.isCanceled()) return nullptr;
        if (!set) continue;
        if (mesh.texture)
            result->append({mesh.texture, set});
        else
            untextured = set;
    }
    progress.finish();
    collection.reportLosses();
    return result;
}

std::uint64_t TriangleCollector::splits() {
    return s_splits;
}

} // namespace ZMT::CORE
