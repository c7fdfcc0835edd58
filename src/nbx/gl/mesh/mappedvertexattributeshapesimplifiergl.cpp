#include <nbx/engine/engine.h>
#include <nbx/engine/shapesimplifier.h>
#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>
#include <nbx/scene/shape/polygonset.h>

namespace NBX {

namespace {

/// Turns a mesh into the polygons of its triangles.
class MappedVertexAttributeShapeSimplifierGL : public ShapeSimplifier {
    NBX_TEMPLATE_CLASS(MappedVertexAttributeShapeSimplifierGL, ShapeSimplifier)
public:
    ID target() const override { return MappedVertexAttributeShapeGL::ClassNameNBX(); }
    bool isSimple() const override { return true; }

    bool simplify(Engine * engine, const Shape * shape) override {
        const auto * mesh = dynamic_cast<const MappedVertexAttributeShapeGL *>(shape);
        if (!engine || !mesh) return false;
        if (const SO<PolygonSet> set = mesh->newPolygonSet()) engine->paint(set.get());
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER(MappedVertexAttributeShapeSimplifierGL)

} // namespace NBX
