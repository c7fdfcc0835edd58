// The triangles of trees are those of their leaves, which are the models at full detail, and tell their model
// vertex by vertex; those of models on their places are what is left of the scene without its nodes. Both
// come in geo coordinates, and from there to the cells of a raster.

#include <zmt/util/occlusion/lightcasters.h>

#include <algorithm>
#include <array>
#include <cmath>

#include <nbx/analysis/scenegraphanalyzer.h>
#include <nbx/container/sequence/array.h>
#include <nbx/math/bounds.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/texturedtriangles/cityassembly.h>
#include <zmt/core/texturedtriangles/citymodels.h>

#include "core/texturedtriangles/modelnumber.h"

namespace ZMT::UTIL {

namespace {

using NBX::SO;
using Body = LightCasters::Body;
using Point = LightCasters::Point;
using Mesh = NBX::MappedVertexAttributeShapeGL;

/// A body for each model, and one for the rest.
std::vector<Body> bodiesFor(const std::vector<CORE::CityModels::Model> & models) {
    std::vector<Body> bodies(models.size() + 1);
    for (std::size_t i = 0; i < models.size(); ++i)
        bodies[i].ground = models[i].ground;
    return bodies;
}

/// A number from a file may be anything.
Body & bodyOf(double model, std::vector<Body> & bodies) {
    const bool isKnown = model >= 0.0 && model < double(bodies.size() - 1);
    return isKnown ? bodies[std::size_t(model)] : bodies.back();
}

/// `Shape` has vertices and triangles.
template <class Shape, class VertexAt, class ModelAt>
void appendTrianglesOf(const Shape & shape, const VertexAt & vertexAt, const ModelAt & modelAt,
                       std::vector<Body> & bodies) {
    std::array<unsigned, 3> corners{};
    for (unsigned i = 0; i < shape.triangles(); ++i) {
        if (!shape.triangle(i, corners)) continue;
        Body & body = bodyOf(modelAt(corners[0]), bodies);
        for (const unsigned corner : corners)
            body.corners.push_back(vertexAt(corner));
    }
}

void appendMesh(const Mesh & mesh, const Point & origin, std::vector<Body> & bodies) {
    const SO<Mesh::Buffer> numbers =
        mesh.data() ? mesh.data()->buffer(CORE::ModelNumber::bufferName()) : nullptr;
    const bool tellsModels = numbers && numbers->count() == mesh.data()->vertices();
    appendTrianglesOf(
        mesh, [&](unsigned i) { return mesh.vertex(i) + origin; },
        [&](unsigned i) { return tellsModels ? double(numbers->value(i, 0)) : CORE::ModelNumber::none; },
        bodies);
}

void appendTree(const CORE::TexturedTriangleTree & tree, const Point & origin, std::vector<Body> & bodies) {
    if (tree.getUntexturedGeometry()) appendMesh(*tree.getUntexturedGeometry(), origin, bodies);
    const auto & nodes = tree.getRenderTree();
    if (!nodes) return;
    std::vector<CORE::RenderTree::NodePointer> waiting{nodes->root()};
    while (!waiting.empty()) {
        const auto node = waiting.back();
        waiting.pop_back();
        if (node->content.triangles) appendMesh(*node->content.triangles, origin, bodies);
        for (unsigned i = 0; nodes->hasChildren(node) && i < CORE::RenderTree::s_childrenOfNode; ++i)
            waiting.push_back(nodes->child(node, i));
    }
}

bool isFinite(const Point & p) {
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

/// What a body stands on: as it says, else the ground below its middle, else its own lowest point.
double groundBelow(const Body & body, const LightCasters::Frame & frame) {
    if (std::isfinite(body.ground)) return body.ground;
    const Point middle = body.middle();
    const RASTER::MapPlace place{middle.x, middle.z};
    const auto onMap = frame.toMap ? frame.toMap(place) : place;
    const double ground = onMap && frame.groundAt ? frame.groundAt(*onMap) : body.ground;
    if (std::isfinite(ground)) return ground;
    double lowest = middle.y;
    for (const Point & corner : body.corners)
        lowest = std::min(lowest, corner.y);
    return lowest;
}

} // namespace

Point LightCasters::Body::middle() const {
    NBX::Bounds box;
    for (const Point & corner : corners)
        box += corner;
    return box.isDefined() ? box.center() : Point();
}

std::vector<Body> LightCasters::bodiesOf(const CORE::CityModels & city) {
    std::vector<Body> bodies = bodiesFor(city.models());
    for (const SO<CORE::TexturedTriangleTree> & tree : city.trees())
        appendTree(*tree, city.origin(), bodies);
    return bodies;
}

std::vector<Body> LightCasters::bodiesOf(const CORE::CityAssembly & assembly) {
    const Point origin = assembly.origin();
    std::vector<Body> bodies = bodiesFor(assembly.table(origin));
    const SO<NBX::SceneThing> scene = assembly.scene(origin);
    NBX::SceneGraphAnalyzer::forceShapeType(scene.get(), NBX::SceneGraphAnalyzer::ST_PolygonSet);
    const auto sets =
        NBX::SceneGraphAnalyzer::findObjects(NBX::PolygonSet::ClassNameNBX(), scene.get(), false);
    for (const SO<NBX::FoundObject> & found : *sets) {
        const auto & set = dynamic_cast<const NBX::PolygonSet &>(*found->object());
        if (!set.newVertexIterator()) continue;
        const auto * number = found->context()->get<CORE::ModelNumber>(CORE::ModelNumber::ClassNameNBX());
        const double model = number ? number->number() : CORE::ModelNumber::none;
        appendTrianglesOf(
            set, [&](unsigned i) { return found->matrix() * set.newVertexIterator()->get(i) + origin; },
            [&](unsigned) { return model; }, bodies);
    }
    return bodies;
}

SO<NBX::PolygonSet> LightCasters::inCells(const std::vector<Body> & bodies, const Frame & frame) {
    std::vector<Point> vertices;
    const auto inRaster = [&](const Point & p, double ground) {
        const RASTER::MapPlace place{p.x, p.z};
        const auto onMap = frame.toMap ? frame.toMap(place) : place;
        const double none = std::numeric_limits<double>::quiet_NaN();
        return Point(onMap ? (onMap->x - frame.grid.minX) / frame.grid.cellSizeX : none,
                     (ground + (p.y - ground) / frame.exaggeration) / frame.heightUnit,
                     onMap ? (onMap->y - frame.grid.minY) / frame.grid.cellSizeY : none);
    };
    for (const Body & body : bodies) {
        const double ground = frame.exaggeration == 1.0 ? 0.0 : groundBelow(body, frame);
        for (std::size_t i = 0; i + 2 < body.corners.size(); i += 3) {
            const std::array<Point, 3> triangle = {inRaster(body.corners[i], ground),
                                                   inRaster(body.corners[i + 1], ground),
                                                   inRaster(body.corners[i + 2], ground)};
            if (isFinite(triangle[0]) && isFinite(triangle[1]) && isFinite(triangle[2]))
                vertices.insert(vertices.end(), triangle.begin(), triangle.end());
        }
    }
    return new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new NBX::Array<Point>(std::move(vertices)));
}

} // namespace ZMT::UTIL
