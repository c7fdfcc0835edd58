// Vertices are multiplied by the matrix in double precision; normals by its inverse transpose, which keeps
// them at right angles to the surface. The winding stays: what a matrix mirrors on its way to the picture is
// mirrored in the vertices as well.

#include "flatscene.h"

#include <utility>

#include <nbx/container/sequence/array.h>
#include <nbx/math/isfinite.h>
#include <nbx/scene/shape/lineset.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/tf.h>

#include "scenewalk.h"
#include "simpleshapes.h"

namespace NBX {

namespace {

using Vector = Vector3Base<double>;
using Matrix = Matrix4x4Base<double>;
using Vectors = Iterator<Vector>;

SO<Vectors> transformed(const SO<Vectors> & points, const Matrix & matrix) {
    if (!points) return nullptr;
    std::vector<Vector> result;
    result.reserve(points->size());
    for (const Vector & point : *points)
        result.push_back(matrix * point);
    return new Array<Vector>(std::move(result));
}

SO<Vectors> transformedNormals(const SO<Vectors> & normals, const Matrix & matrix) {
    if (!normals) return nullptr;
    const Matrix inverseTranspose = matrix.inverse().transposed();
    std::vector<Vector> result;
    result.reserve(normals->size());
    for (const Vector & normal : *normals) {
        const Vector turned = inverseTranspose.transformDirection(normal).normalized();
        result.push_back(isFinite(turned) ? turned : normal);
    }
    return new Array<Vector>(std::move(result));
}

SO<Shape> transformed(const PolygonSet & set, const Matrix & matrix) {
    const SO<PolygonSet> result(new PolygonSet(
        set.getPrimitiveType(), transformed(set.newVertexIterator(), matrix), set.newIndexIterator()));
    result->setNormalIterator(transformedNormals(set.newNormalIterator(), matrix));
    result->setColorIterator(set.newColorIterator());
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        result->setTextureIterator(set.newTextureIterator(unit), unit);
    result->setObjectName(set.getObjectName());
    return result;
}

SO<Shape> transformed(const LineSet & set, const Matrix & matrix) {
    const SO<LineSet> result(
        new LineSet(set.getPrimitiveType(), transformed(set.newVertexIterator(), matrix)));
    result->setColorIterator(set.newColorIterator());
    result->setObjectName(set.getObjectName());
    return result;
}

/// The shape in the frame of the scene; null for one that knows no vertices.
SO<Shape> transformed(const SO<Shape> & shape, const Matrix & matrix) {
    if (matrix == Matrix()) return shape;
    if (const auto * polygons = dynamic_cast<const PolygonSet *>(shape.get()))
        return transformed(*polygons, matrix);
    if (const auto * lines = dynamic_cast<const LineSet *>(shape.get())) return transformed(*lines, matrix);
    return nullptr;
}

SO<const AttributeContext> withAttributes(const SO<const AttributeContext> & context,
                                          const std::vector<SO<MonoAttribute>> & attributes) {
    if (attributes.empty()) return context;
    std::vector<SO<MonoAttribute>> monos = context->monos();
    for (const SO<MonoAttribute> & attribute : attributes) {
        std::erase_if(monos, [&](const SO<MonoAttribute> & other) {
            return other->category() == attribute->category();
        });
        monos.push_back(attribute);
    }
    return new AttributeContext(std::move(monos), context->others());
}

void appendShape(SceneWalk & walk, const SO<Shape> & shape, std::vector<FlatShape> & result) {
    if (const SO<Shape> moved = transformed(shape, walk.matrix())) {
        result.push_back({moved, walk.context(), {}});
        return;
    }
    const std::vector<SimpleShape> simple = simpleShapes(walk.engine(), shape.get());
    if (simple.empty()) result.push_back({shape, walk.context(), walk.matrix()});
    for (const SimpleShape & part : simple)
        result.push_back(
            {transformed(part.shape, part.matrix), withAttributes(walk.context(), part.attributes), {}});
}

} // namespace

std::vector<FlatShape> flatShapes(const SceneThing & scene) {
    std::vector<FlatShape> result;
    SceneWalk walk;
    walk.run(scene, [&](const SceneWalk::Place & place) {
        const SO<Shape> shape = soCast<Shape>(place.object);
        if (shape && !SceneWalk::holdsObjects(*shape)) appendShape(walk, shape, result);
        return true;
    });
    return result;
}

void appendFlat(SceneThing & scene, const FlatShape & flat) {
    const bool isPlaced = !(flat.matrix == Matrix());
    if (flat.context->isEmpty() && !isPlaced) {
        scene.append(flat.shape.get());
        return;
    }
    const SO<SceneThing> node(new SceneThing());
    for (const SO<MonoAttribute> & attribute : flat.context->monos())
        node->append(attribute.get());
    for (const SO<RenderObj> & object : flat.context->others())
        node->append(object.get());
    if (isPlaced) node->append(new Tf(flat.matrix));
    node->append(flat.shape.get());
    scene.append(node.get());
}

} // namespace NBX
