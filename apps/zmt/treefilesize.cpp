#include "treefilesize.h"

#include "landscape/errors.h"

#include <zmt/core/terrain/geometry/view/builtterrain.h>

void checkTreeFileSize(const std::string & heights, const ZMT::CORE::GridData & grid, unsigned maxVertices,
                       std::uint64_t most) {
    const unsigned ofLines = grid.vertices() - grid.sizeX() * grid.sizeY();
    const std::uint64_t bytes =
        ZMT::CORE::BuiltTerrain::expectedBytes(grid.sizeX(), grid.sizeY(), maxVertices, ofLines);
    if (bytes <= most) return;
    throw DataError(heights + ": its tree would take " + std::to_string((bytes >> 30) + 1) +
                    " GiB, and a file holds 4; give a smaller raster" +
                    (ofLines > 0 ? ", fewer --breaklines" : "") + " or fewer --max-vertices");
}
