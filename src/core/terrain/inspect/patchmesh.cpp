#include <zmt/core/terrain/inspect/patchmesh.h>

#include <zmt/core/terrain/geometry/base/geometrypatch.h>

namespace ZMT::CORE {

PatchMesh::PatchMesh(const GeometryPatch & patch)
    : domain_(patch.description().cells), mesh_(patch.surface({})) {}

} // namespace ZMT::CORE
