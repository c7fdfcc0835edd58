// The scene is flattened and parted into what is opaque and what is not. Its triangles carry the number of
// their shape through the layout, in a texture unit, so that afterwards each shape gets its own attributes
// again: one node for every shape and atlas, drawn by a program that multiplies colour and light.

#include <zmt/util/occlusion/ambientocclusion.h>

#include <map>
#include <utility>
#include <vector>

#include <GL/gl.h>

#include <nbx/analysis/scenegraphanalyzer.h>
#include <nbx/container/sequence/array.h>
#include <nbx/container/sequence/constantiterator.h>
#include <nbx/engine/canvas.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/gl/program/programobject.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/textureunitsettinggl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/attribute/disableshading.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/polygonsettool.h>

namespace ZMT::UTIL {

namespace {

using NBX::PolygonSet;
using NBX::SceneThing;
using NBX::SO;
using Analyzer = NBX::SceneGraphAnalyzer;
using Composite = UniqueTextureMapping::TexturedMeshComposite;
using Vector = NBX::Vector3Base<double>;

/// What has a smaller alpha is drawn with blending.
constexpr double s_leastOpaqueAlpha = 0.8;
/// The light that a texture has where it is white.
constexpr float s_leastLight = 0.0F, s_mostLight = 1.5F;
/// Texture units of the number of a shape, before and after the layout.
constexpr unsigned s_numberUnit = 6, s_laidOutNumberUnit = 7;

struct LitShape {
    SO<PolygonSet> mesh; ///< triangles that carry its number
    SO<const NBX::AttributeContext> context;
    bool isOpaque;
};

/// The polygon sets of a flat scene, behind those in `shapes`.
void appendShapes(SceneThing & scene, bool isOpaque, std::vector<LitShape> & shapes) {
    Analyzer::forceShapeType(&scene, Analyzer::ST_PolygonSet);
    Analyzer::flattenScene(&scene);
    const auto sets = Analyzer::findObjects(PolygonSet::ClassNameNBX(), &scene, false);
    for (const SO<NBX::FoundObject> & found : *sets) {
        const auto set = NBX::soCast<PolygonSet>(found->object());
        const SO<PolygonSet> mesh = NBX::PolygonSetTool::extractTriangleMesh(set.get(), true);
        if (!mesh || mesh->triangles() == 0) continue;
        mesh->setTextureIterator(
            new NBX::ConstantIterator<Vector>(Vector(static_cast<double>(shapes.size()), 0.0, 0.0),
                                              mesh->newVertexIterator()->size()),
            s_numberUnit);
        shapes.push_back({mesh, found->context(), isOpaque});
    }
}

std::vector<LitShape> shapesOf(SceneThing & scene) {
    SO<SceneThing> opaque, transparent;
    Analyzer::splitScene(&scene, 1.0, opaque, transparent);
    std::vector<LitShape> shapes;
    if (opaque) appendShapes(*opaque, true, shapes);
    if (transparent) appendShapes(*transparent, false, shapes);
    return shapes;
}

SO<NBX::GLCanvas> findCanvas() {
    SO<NBX::GLCanvas> canvasToUse;
    for (NBX::Canvas * canvas : NBX::Canvas::canvasList()) {
        auto * gl = dynamic_cast<NBX::GLCanvas *>(canvas);
        if (!canvasToUse && gl && gl->isCreated()) canvasToUse = gl;
    }
    if (canvasToUse) return canvasToUse;
    NBX_REPORT(0, L"canvasToUse!=0", L"No appropriate canvas found. Using temporary canvas.");
    return new NBX::OffscreenCanvasGL(16, 16);
}

template <class T>
SO<NBX::Iterator<T>> gathered(const SO<NBX::Iterator<T>> & values, const std::vector<unsigned> & corners) {
    if (!values) return nullptr;
    std::vector<T> result;
    result.reserve(corners.size());
    for (const unsigned corner : corners)
        result.push_back(values->get(corner));
    return new NBX::Array<T>(std::move(result));
}

SO<PolygonSet> partOf(const PolygonSet & mesh, const std::vector<unsigned> & corners) {
    SO<PolygonSet> part(
        new PolygonSet(PolygonSet::PT_Triangles, gathered(mesh.newVertexIterator(), corners)));
    part->setNormalIterator(gathered(mesh.newNormalIterator(), corners));
    part->setColorIterator(gathered(mesh.newColorIterator(), corners));
    for (unsigned unit = 0; unit < s_laidOutNumberUnit; ++unit)
        part->setTextureIterator(gathered(mesh.newTextureIterator(unit), corners), unit);
    return part;
}

/// The triangles of one atlas by the number of their shape.
std::map<unsigned, std::vector<unsigned>> cornersByShape(const PolygonSet & mesh) {
    std::map<unsigned, std::vector<unsigned>> corners;
    const auto numbers = mesh.newTextureIterator(s_laidOutNumberUnit);
    for (unsigned i = 0; i < numbers->size(); ++i)
        corners[static_cast<unsigned>(numbers->get(i).x)].push_back(i);
    return corners;
}

/// Of texture unit 0; null without one.
NBX::TextureGL * colorTexture(const NBX::AttributeContext & context) {
    const NBX::ID unit0 = NBX::TextureUnitSettingGL::category(0);
    if (const auto * setting = context.get<NBX::TextureUnitSettingGL>(unit0)) return setting->texture();
    return dynamic_cast<NBX::TextureGL *>(context.mono(NBX::TextureGL::ClassNameNBX()));
}

/// The two ways to draw a shape, without and with a texture of its own.
struct BoostPrograms {
    SO<NBX::GL2::ProgramObject> plain =
        AmbientOcclusion::getIntensityBoostProgram(false, s_leastLight, s_mostLight);
    SO<NBX::GL2::ProgramObject> textured =
        AmbientOcclusion::getIntensityBoostProgram(true, s_leastLight, s_mostLight);
};

SO<SceneThing> newNode(const LitShape & shape, const SO<PolygonSet> & part, NBX::TextureGL * light,
                       const BoostPrograms & programs) {
    SO<SceneThing> node(new SceneThing);
    const NBX::ID texture = NBX::TextureGL::ClassNameNBX();
    const NBX::ID unit0 = NBX::TextureUnitSettingGL::category(0);
    for (const SO<NBX::MonoAttribute> & attribute : shape.context->monos())
        if (attribute->category() != texture && attribute->category() != unit0) node->append(attribute.get());
    NBX::TextureGL * color = colorTexture(*shape.context);
    node->append(new NBX::TextureUnitSettingGL(0, light));
    if (color) node->append(new NBX::TextureUnitSettingGL(1, color));
    node->append((color ? programs.textured : programs.plain).get());
    node->append(part.get());
    return node;
}

/// What can be seen through: first what nearly cannot be seen, with blending, then the rest.
void appendTransparent(SceneThing & scene, const std::vector<SO<SceneThing>> & nodes) {
    const SO<SceneThing> blended(new SceneThing), dense(new SceneThing);
    blended->append(NBX::ColorBufferGL::newBlending(true, GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA));
    blended->append(NBX::ColorBufferGL::newAlphaTest(true, GL_LEQUAL, s_leastOpaqueAlpha));
    dense->append(NBX::ColorBufferGL::newAlphaTest(true, GL_GREATER, s_leastOpaqueAlpha));
    for (const SO<SceneThing> & node : nodes) {
        blended->append(node.get());
        dense->append(node.get());
    }
    scene.append(blended.get());
    scene.append(dense.get());
}

SO<SceneThing> newLitScene(const std::vector<LitShape> & shapes, const Composite & lit) {
    SO<SceneThing> scene(new SceneThing);
    scene->append(new NBX::DisableShading);
    const BoostPrograms programs;
    std::vector<SO<SceneThing>> transparent;
    for (unsigned atlas = 0; atlas < lit.meshes->size(); ++atlas) {
        const SO<PolygonSet> mesh = lit.meshes->get(atlas);
        for (const auto & [number, corners] : cornersByShape(*mesh)) {
            const LitShape & shape = shapes[number];
            const SO<SceneThing> node =
                newNode(shape, partOf(*mesh, corners), lit.textures->get(atlas).get(), programs);
            if (shape.isOpaque)
                scene->append(node.get());
            else
                transparent.push_back(node);
        }
    }
    if (!transparent.empty()) appendTransparent(*scene, transparent);
    return scene;
}

} // namespace

SO<SceneThing> AmbientOcclusion::applyAmbientOcclusion(const SO<SceneThing> & scene,
                                                       const LightingConfiguration & configuration,
                                                       double texelsPerUnit) {
    NBX_CHECK(scene, L"no scene");
    if (!scene) return nullptr;
    const std::vector<LitShape> shapes = shapesOf(*scene);
    if (shapes.empty()) return new SceneThing;
    std::vector<SO<PolygonSet>> meshes;
    meshes.reserve(shapes.size());
    for (const LitShape & shape : shapes)
        meshes.push_back(shape.mesh);
    const Composite lit =
        createLightingTextures(new NBX::NonPersistentArray<SO<PolygonSet>>(std::move(meshes)), texelsPerUnit,
                               findCanvas(), configuration);
    return lit.meshes ? newLitScene(shapes, lit) : nullptr;
}

} // namespace ZMT::UTIL
