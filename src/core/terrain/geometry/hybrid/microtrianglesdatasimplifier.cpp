#include <zmt/core/terrain/geometry/hybrid/microtrianglesdatasimplifier.h>

#include "microtrianglesdataiterator.h"
#include <nbx/engine/engine.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(MicroTrianglesDataSimplifier, NBX::ShapeSimplifier)

NBX::ID MicroTrianglesDataSimplifier::target() const {
    return MicroTrianglesData::ClassNameNBX();
}

bool MicroTrianglesDataSimplifier::simplify(NBX::Engine * engine, const NBX::Shape * shape) {
    using Iterator = MicroTrianglesData_Iterator;
    const NBX::SO<MicroTrianglesData> micro(
        dynamic_cast<MicroTrianglesData *>(const_cast<NBX::Shape *>(shape)));
    NBX_CHECK(engine, L"no engine");
    NBX_CHECK(micro, L"no micro-structure");
    if (!engine || !micro) return false;
    const NBX::SO<NBX::PolygonSet> set(
        new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new Iterator(micro.get(), Iterator::IM_Vertices)));
    set->setNormalIterator(new Iterator(micro.get(), Iterator::IM_Normals));
    engine->paint(set.get());
    return true;
}

NBX_REGISTER_HANDLER(MicroTrianglesDataSimplifier)

} // namespace ZMT::CORE
