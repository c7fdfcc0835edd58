#pragma once

namespace ZMT::CORE {

class GeometryPatchPainterGL;

/// The painter of the patches of a `ChunkedLodTerrain`. The caller takes it.
GeometryPatchPainterGL * newChunkedLodTerrainPatchPainterGL();

} // namespace ZMT::CORE
