// The members of the tree that build it stand here, above what they are built with.

#include "texturedtriangletreebuild.h"

#include <cmath>
#include <iostream>
#include <string>

#include <nbx/analysis/scenegraphanalyzer.h>
#include <nbx/data/binaryobjectwriter.h>
#include <nbx/data/file.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/texture/textureunitsettinggl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/texturedtriangles/heldpagingfiles.h>

#include "atlastreegenerator.h"
#include "core/texturedtriangles/geometrybatching.h"
#include "core/texturedtriangles/modelnumber.h"
#include "meshvalidation.h"
#include "optimizedscenegl.h"
#include "rendertreecreator.h"
#include "trianglecollector.h"

namespace ZMT::CORE {

namespace {

using NBX::GLCanvas;
using NBX::SceneGraphAnalyzer;
using NBX::SceneThing;
using NBX::SO;
using NBX::StringUtils;

/// With alpha for all trees, not colour and depth (3) alone: the same canvas draws the opaque tree and the
/// one that is seen through, whose atlases keep their alpha on a canvas that has it only.
constexpr unsigned s_canvasProperties =
    GLCanvas::COLOR_BUFFER | GLCanvas::DEPTH_BUFFER | GLCanvas::ALPHA_BUFFER;
/// Below it, what is drawn can be seen through.
constexpr double s_opaque = 0.9;

void tell(const char * step) {
    if (TexturedTriangleTree::getVerbose()) std::cout << '\t' << step << '\n' << std::flush;
}

bool isUsable(const TexturedTriangleTreeSettings & settings) {
    const auto isPositive = [](double value) { return std::isfinite(value) && value > 0.0; };
    return isPositive(settings.distance) && isPositive(settings.quality) && settings.screenSize > 0 &&
           isPositive(settings.fieldOfView) && settings.fieldOfView < 180.0 && settings.atlasSize > 0 &&
           settings.atlasSize <= TexturedTriangleTree::s_maxAtlasSize;
}

void prepareCanvas(SO<GLCanvas> & canvas, int atlasSize, bool createAlphaTextures) {
    const auto side = static_cast<unsigned>(atlasSize);
    if (canvas)
        canvas->setSize(side, side);
    else
        canvas = new NBX::PBufferCanvasGL(side, side, s_canvasProperties);
    NBX_CHECK(!createAlphaTextures || canvas->hasProperty(NBX::GLCanvas::ALPHA_BUFFER),
              L"alpha buffer missing in canvas");
}

/// The format of trees is another one while it lives.
class FormatOfTrees {
public:
    using Format = TexturedTriangleTree::TextureFormat;
    explicit FormatOfTrees(Format format) : before_(TexturedTriangleTree::getDefaultTextureFormat()) {
        TexturedTriangleTree::setDefaultTextureFormat(format);
    }
    ~FormatOfTrees() { TexturedTriangleTree::setDefaultTextureFormat(before_); }
    FormatOfTrees(const FormatOfTrees &) = delete;
    FormatOfTrees & operator=(const FormatOfTrees &) = delete;

private:
    const Format before_;
};

/// Removes the paging file of a tree unless it is kept. A tree without textures has none, and then a file of
/// that name is somebody else's, as where files are held without a name.
class RemovedUnlessKept {
public:
    explicit RemovedUnlessKept(const TexturedTriangleTree & tree)
        : path_(StringUtils::WString2Utf8String(tree.getPagingFile(0))) {}
    ~RemovedUnlessKept() {
        if (!path_.empty() && !HeldPagingFiles::current()) NBX::File::remove(path_);
    }
    void keep() { path_.clear(); }
    RemovedUnlessKept(const RemovedUnlessKept &) = delete;
    RemovedUnlessKept & operator=(const RemovedUnlessKept &) = delete;

private:
    std::string path_;
};

/// In a node of a flat scene, the setting of unit 0 becomes its texture, in the place of any other one.
void replaceUnitSetting(SceneThing & node) {
    const NBX::TextureUnitSettingGL * setting = nullptr;
    for (unsigned i = 0; i < node.objects(); ++i)
        if (auto * found = dynamic_cast<NBX::TextureUnitSettingGL *>(node.object(i)))
            if (found->unit() == 0) setting = found;
    if (!setting) return;
    const SO<NBX::RenderObj> texture(setting->texture());
    node.rewrite([&](NBX::RenderObj * object) -> SO<NBX::RenderObj> {
        if (object == setting) return texture;
        return dynamic_cast<NBX::TextureGL *>(object) ? nullptr : SO<NBX::RenderObj>(object);
    });
}

/// Of levels of detail, the first one; of texture units, the first one's texture. `scene` stays as it is.
SO<SceneThing> flatSceneOf(const SO<NBX::SceneNode> & scene) {
    SO<SceneThing> flat(new SceneThing());
    flat->append(scene.get());
    SceneGraphAnalyzer::flattenScene(flat.get());
    for (unsigned i = 0; i < flat->objects(); ++i)
        if (auto * node = dynamic_cast<SceneThing *>(flat->object(i))) replaceUnitSetting(*node);
    return flat;
}

/// Into what is seen through and what is not. False after a cancel.
bool divide(const SO<NBX::SceneNode> & scene, bool joinAll, SO<SceneThing> & opaque,
            SO<SceneThing> & transparent) {
    NBX::Progress progress("joining models", 3.0);
    if (!progress.update(0.0)) return false;
    SO<SceneThing> all = flatSceneOf(scene);
    if (!progress.update(1.0)) return false;
    all = SceneGraphAnalyzer::createOptimizedScene(all.get(), true, joinAll);
    if (!progress.update(2.0)) return false;
    SceneGraphAnalyzer::splitScene(all.get(), s_opaque, opaque, transparent);
    if (!progress.update(3.0)) return false;
    progress.finish();
    return true;
}

SO<TexturedTriangleTree> treeOfPart(const SO<SceneThing> & part,
                                    const TexturedTriangleTreeSettings & settings, SO<GLCanvas> & canvas) {
    SceneGraphAnalyzer::flattenScene(part.get());
    const SO<SceneThing> joined = SceneGraphAnalyzer::createOptimizedScene(part.get(), false, true);
    SO<TexturedTriangleTree> tree(new TexturedTriangleTree());
    return buildTexturedTriangleTree(*tree, joined, settings, canvas) ? tree : nullptr;
}

/// A format that knows no half transparent texels would make glass and leaves solid, or let them vanish.
SO<TexturedTriangleTree> transparentTreeOf(const SO<SceneThing> & part,
                                           const TexturedTriangleTreeSettings & settings,
                                           SO<GLCanvas> & canvas) {
    const auto format = TexturedTriangleTree::TextureFormatRGBA8;
    const bool isOther = TexturedTriangleTree::getDefaultTextureFormat() != format;
    const FormatOfTrees withAlpha(format);
    SO<TexturedTriangleTree> tree = treeOfPart(part, settings, canvas);
    if (tree && tree->getNumberOfLayers() > 0 && isOther)
        NBX_REPORT(2, L"texture format",
                   L"what can be seen through has textures in RGBA8, since the format that was chosen has no "
                   L"full alpha");
    return tree;
}

} // namespace

bool buildTexturedTriangleTree(TexturedTriangleTree & tree, const SO<SceneThing> & scene,
                               const TexturedTriangleTreeSettings & settings, SO<GLCanvas> & canvas) {
    const auto & [distance, createAlphaTextures, pagingFile, quality, screenSize, fieldOfView, atlasSize] =
        settings;
    NBX_CHECK(scene && isUsable(settings), L"no tree can be built of that");
    if (!scene || !isUsable(settings)) return false;
    prepareCanvas(canvas, atlasSize, createAlphaTextures);
    tell("Collecting triangles and textures...");
    SO<NBX::PolygonSet> untextured;
    auto meshes = TriangleCollector::collect(
        scene, untextured, distance, TexturedTriangleTree::uniqueTextureParameterizationEnforced(), true);
    if (!meshes) return false;
    const SO<NBX::MappedVertexAttributeShapeGL> plain =
        untextured ? ModelNumber::newMesh(*untextured) : nullptr;
    if (meshes->isEmpty()) {
        tree.setUntexturedGeometry(plain);
        return true;
    }
    tell("Validating meshes...");
    meshes = MeshValidation::validate(meshes);
    if (!meshes) return false;
    const SO<TriangleContainer> container(new TriangleContainer(meshes));
    meshes = nullptr;
    NBX::BinaryObjectWriter::enableCompression(false); // most of a scene are atlases, which are compact
    tell("Creating atlas tree...");
    const auto atlasTree = AtlasTreeGenerator::createAtlasTree(container, distance, fieldOfView, screenSize,
                                                               quality, atlasSize, canvas);
    if (!atlasTree) return false;
    tell("Computing render tree...");
    const SO<RenderTree> renderTree = RenderTreeCreator::create(
        &tree, TexturedTriangleTree::getDefaultTextureFormat(), 0, pagingFile, atlasTree, container, distance,
        fieldOfView, screenSize, quality, atlasSize, canvas);
    if (!renderTree) return false;
    tell("Batching geometry...");
    batchGeometry(*renderTree);
    tree.setUntexturedGeometry(plain);
    tree.setRenderTree(renderTree);
    tree.setAtlasSize(atlasSize);
    tell("Done.");
    return true;
}

SO<TexturedTriangleTree> newTexturedTriangleTree(const SO<SceneThing> & scene, bool createAlphaTextures,
                                                 const std::wstring & pagingFile, SO<GLCanvas> canvas) {
    NBX_CHECK(canvas, L"no canvas");
    if (!canvas) return nullptr;
    TexturedTriangleTreeSettings settings;
    settings.createAlphaTextures = createAlphaTextures;
    settings.pagingFile = pagingFile;
    settings.atlasSize = static_cast<int>(canvas->getWidth());
    SO<TexturedTriangleTree> tree(new TexturedTriangleTree());
    return buildTexturedTriangleTree(*tree, scene, settings, canvas) ? tree : nullptr;
}

TexturedTriangleTree::TexturedTriangleTree(SO<SceneThing> scene, double distance, bool createAlphaTextures,
                                           const std::wstring & pagingFile, const std::wstring &,
                                           double quality, int screenSize, double fieldOfView, int atlasSize,
                                           SO<GLCanvas> canvas)
    : TexturedTriangleTree() {
    buildTexturedTriangleTree(
        *this, scene,
        {distance, createAlphaTextures, pagingFile, quality, screenSize, fieldOfView, atlasSize}, canvas);
}

SO<SceneThing> TexturedTriangleTree::createOptimizedScene(SO<NBX::SceneNode> scene, double distance,
                                                          const std::wstring & fileName, bool flag,
                                                          double quality, int screenSize, double fieldOfView,
                                                          int atlasSize, SO<GLCanvas> canvas) {
    NBX_CHECK(scene, L"no scene");
    if (!scene) return nullptr;
    SO<SceneThing> opaque, transparent;
    if (!divide(scene, flag, opaque, transparent)) return nullptr;
    const std::string name = StringUtils::WString2Utf8String(fileName);
    const auto pagingFile = [&name](const char * part) {
        return StringUtils::Utf8String2WString(
            NBX::File::replaceExtensionName(name, part + NBX::File::extensionName(name)));
    };
    TexturedTriangleTreeSettings settings{distance,    false,    pagingFile("opaque."), quality, screenSize,
                                          fieldOfView, atlasSize};
    const SO<TexturedTriangleTree> opaqueTree = treeOfPart(opaque, settings, canvas);
    if (!opaqueTree) return nullptr;
    RemovedUnlessKept opaqueFile(*opaqueTree);
    settings.pagingFile = pagingFile("trans.");
    settings.createAlphaTextures = true;
    const SO<TexturedTriangleTree> transparentTree = transparentTreeOf(transparent, settings, canvas);
    if (!transparentTree) return nullptr;
    SO<SceneThing> result = newOptimizedScene(opaqueTree, transparentTree);
    opaqueFile.keep();
    return result;
}

} // namespace ZMT::CORE
