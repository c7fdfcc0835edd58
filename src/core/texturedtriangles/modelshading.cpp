#include <zmt/core/texturedtriangles/modelshading.h>

#include <algorithm>
#include <vector>

#include <nbx/analysis/scenegraphanalyzer.h>
#include <nbx/container/sequence/array.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/shapematerial.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/polygonsettool.h>

namespace ZMT::CORE {

namespace {

using NBX::Color;
using NBX::PolygonSet;
using NBX::SO;
using Point = NBX::Vector3Base<double>;

/// Of every vertex of triangles that have vertices of their own. Front faces turn counter-clockwise in a
/// picture, and the scene's axes are left-handed.
std::vector<Point> faceNormals(const PolygonSet::Vertices & vertices) {
    std::vector<Point> normals;
    normals.reserve(vertices.size());
    for (unsigned i = 0; i + 2 < vertices.size(); i += 3)
        normals.insert(
            normals.end(), 3,
            -NBX::PolygonSetTool::getTriangleNormal(vertices[i], vertices[i + 1], vertices[i + 2]));
    return normals;
}

std::vector<Point> normalsOf(const PolygonSet & set) {
    const SO<PolygonSet::Vertices> & given = set.newNormalIterator();
    if (!given || given->size() != set.newVertexIterator()->size())
        return faceNormals(*set.newVertexIterator());
    std::vector<Point> normals;
    normals.reserve(given->size());
    for (const Point & normal : *given)
        normals.push_back(normal.normalized());
    return normals;
}

Color lit(const Color & color, double light) {
    return {float(color[0] * light), float(color[1] * light), float(color[2] * light), color[3]};
}

/// The triangles of `set` in the light; `color` is that of sets without colours.
SO<PolygonSet> litSet(const PolygonSet & set, const Color & color, const ModelShading & shading) {
    const SO<PolygonSet> result = NBX::PolygonSetTool::extractTriangleMesh(&set, true);
    if (!result || !result->newVertexIterator()) return nullptr;
    const std::vector<Point> normals = normalsOf(*result);
    const SO<PolygonSet::Colors> & own = result->newColorIterator();
    std::vector<Color> colors;
    colors.reserve(normals.size());
    for (unsigned i = 0; i < normals.size(); ++i)
        colors.push_back(lit(own && i < own->size() ? (*own)[i] : color, shading.lightOn(normals[i])));
    result->setColorIterator(new NBX::Array<Color>(std::move(colors)));
    return result;
}

/// A node of a flat scene: attributes, and a set behind them.
struct Place {
    PolygonSet * set = nullptr;
    SO<NBX::ColorAttribute> color;
    SO<NBX::ShapeMaterial> material;
    bool isTextured = false;

    explicit Place(const NBX::SceneThing & node) {
        for (unsigned i = 0; i < node.objects(); ++i) {
            NBX::RenderObj * object = node.object(i);
            if (auto * found = dynamic_cast<PolygonSet *>(object)) set = found;
            if (auto * found = dynamic_cast<NBX::ColorAttribute *>(object)) color = found;
            if (auto * found = dynamic_cast<NBX::ShapeMaterial *>(object)) material = found;
            if (dynamic_cast<NBX::TextureGL *>(object)) isTextured = true;
        }
        isTextured = isTextured && set && set->newTextureIterator(0);
    }
};

void bakeNode(NBX::SceneThing & node, const ModelShading & shading) {
    const Place place(node);
    if (!place.set) return;
    if (place.material) node.remove(place.material.get());
    if (place.isTextured && !shading.isOnTextures) return;
    const Color color = place.color ? place.color->getColor() : Color::white;
    const SO<PolygonSet> shaded = litSet(*place.set, color, shading);
    if (!shaded) return;
    node.replace(place.set, shaded.get());
    // The colours of vertices have taken its place; sets that differ in it alone can be joined.
    if (place.color) node.remove(place.color.get());
}

} // namespace

double ModelShading::lightOn(const Point & normal) const {
    const double up = normal.y;
    const double sky = up > 0.0 ? wallShare + (1.0 - wallShare) * up : wallShare + wallShare * wallShare * up;
    return skyShare * sky + (1.0 - skyShare) * std::max(0.0, normal.dot(toSun));
}

void ModelShading::bake(const SO<NBX::SceneThing> & scene) const {
    NBX::SceneGraphAnalyzer::flattenScene(scene.get());
    for (unsigned i = 0; i < scene->objects(); ++i) {
        if (auto * node = dynamic_cast<NBX::SceneThing *>(scene->object(i))) {
            bakeNode(*node, *this);
        } else if (const auto * set = dynamic_cast<PolygonSet *>(scene->object(i))) {
            const SO<PolygonSet> shaded = litSet(*set, Color::white, *this);
            if (shaded) scene->replace(set, shaded.get());
        }
    }
}

} // namespace ZMT::CORE
