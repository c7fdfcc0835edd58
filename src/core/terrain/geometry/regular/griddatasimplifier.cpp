#include <zmt/core/terrain/geometry/regular/griddatasimplifier.h>

#include <nbx/engine/engine.h>
#include <zmt/core/misc/usedisplaylistgl.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(GridDataSimplifier, NBX::ShapeSimplifier)

NBX::ID GridDataSimplifier::target() const {
    return GridData::ClassNameNBX();
}

bool GridDataSimplifier::simplify(NBX::Engine * E, const NBX::Shape * shape) {
    // The patch lives no longer than this call, and a display list of it would be of no use later.
    static const NBX::SO<UseDisplayListGL> noDisplayList(new UseDisplayListGL(false));
    NBX_CHECK(E, L"no engine");
    const NBX::SO<GridData> grid(dynamic_cast<GridData *>(const_cast<NBX::Shape *>(shape)));
    if (!E || !grid) return false;
    const NBX::Bounds box = grid->boundingBox();
    const NBX::SO<GridPatch> patch(new GridPatch(grid, NBX::Area(0, 0, grid->sizeX() - 1, grid->sizeY() - 1),
                                                 box, 0.0, box.getLLF().y, nullptr));
    const NBX::AttributeScope scope(E, noDisplayList.get());
    E->paint(patch.get());
    return true;
}

NBX_REGISTER_HANDLER(GridDataSimplifier)

} // namespace ZMT::CORE
