#include <nbx/container/sequence/array.h>
#include <nbx/engine/engine.h>
#include <nbx/engine/shapesimplifier.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/shape/polygonset.h>

namespace NBX {

namespace {

using Vectors = Array<Vector3Base<double>>;

/// The four corners of a face on the `upper` or lower side of `axis`, counter-clockwise as seen from outside
/// in the left-handed world.
void appendFace(const Bounds & bounds, unsigned axis, bool upper, Vectors & vertices, Vectors & normals) {
    const unsigned next = (axis + 1) % 3, last = (axis + 2) % 3;
    Vector3Base<double> normal;
    normal[axis] = upper ? 1.0 : -1.0;
    for (unsigned i = 0; i < 4; ++i) {
        const unsigned corner = upper ? 3 - i : i;
        Vector3Base<double> uvw;
        uvw[axis] = upper ? 1.0 : 0.0;
        uvw[next] = corner == 1 || corner == 2 ? 1.0 : 0.0;
        uvw[last] = corner >= 2 ? 1.0 : 0.0;
        vertices.append(bounds.point(uvw.x, uvw.y, uvw.z));
        normals.append(normal);
    }
}

/// Turns a box into its six faces.
class BoxSimplifier : public ShapeSimplifier {
    NBX_TEMPLATE_CLASS(BoxSimplifier, ShapeSimplifier)
public:
    ID target() const override { return Box::ClassNameNBX(); }
    bool isSimple() const override { return true; }

    bool simplify(Engine * engine, const Shape * shape) override {
        const auto * box = dynamic_cast<const Box *>(shape);
        if (!box) return false;
        if (!box->getBounds().isDefined()) return true;
        const SO<Vectors> vertices(new Vectors()), normals(new Vectors());
        for (unsigned face = 0; face < 6; ++face)
            appendFace(box->getBounds(), face / 2, face % 2 == 1, *vertices, *normals);
        const SO<PolygonSet> faces(new PolygonSet(PolygonSet::PT_Quads, vertices));
        faces->setNormalIterator(normals);
        engine->paint(faces.get());
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER(BoxSimplifier)

} // namespace NBX
