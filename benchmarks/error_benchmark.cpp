// Stated and real errors of all patches of whole rasters, by both methods:
//     error_benchmark heights.tif more.tif
//
// Real is the largest vertical distance of a height of the raster from the patch as it is drawn. A line for
// each raster and method, of which the last but one number must not exceed the last one.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>

#include <support/patchdeviation.h>

#include "core/terrain/geometry/chunked/chunkedlodterrainimpl.h"
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodwindow.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/raster/gdal/rasterfile.h>

namespace {

using namespace ZMT::CORE;

constexpr unsigned s_maxVertices = 4000;

/// What was found on all patches of a raster.
struct Table {
    unsigned patches = 0;
    double largestError = 0.0; ///< the largest one stated
    double worstRatio = 0.0;   ///< of the real error, without the rounding of the heights, to that stated
    double fullDetail = 0.0;   ///< the largest real error where none is stated
};

/// `rounding` is that of the heights, which no error states.
void addPatch(const GeometryPatch & patch, double rounding, Table & table) {
    const double stated = patch.approximationError(), real = PatchDeviation::of(patch);
    ++table.patches;
    table.largestError = std::max(table.largestError, stated);
    if (stated > 0.0)
        table.worstRatio = std::max(table.worstRatio, (real - rounding) / stated);
    else
        table.fullDetail = std::max(table.fullDetail, real);
}

void addTree(const GeometryPatch & patch, Table & table) {
    addPatch(patch, 0.0, table);
    for (unsigned i = 0; i < patch.children(); ++i)
        addTree(*patch.child(i), table);
}

/// A patch at a time, since there are millions. Below one that shows every vertex all others do.
void addChunks(const NBX::SO<ChunkedLodTerrain> & terrain, const ChunkedLodWindow & w, Table & table) {
    const NBX::SO<ChunkedLodTerrain::Patch> patch(
        new ChunkedLodTerrain::Patch(terrain, w.x, w.y, w.size, w.threshold, terrain->wall()));
    addPatch(*patch, terrain->heightScale() / 2.0, table);
    for (unsigned i = 0; w.threshold > 0 && i < w.children(*terrain->impl()); ++i)
        addChunks(terrain, w.child(*terrain->impl(), i), table);
}

void print(const std::string & name, const char * method, const Table & table, double allowed) {
    std::printf("| %s | %s | %u | %.4g | %.3g | %.3f | %.3f |\n", name.c_str(), method, table.patches,
                table.largestError, table.fullDetail, table.worstRatio, allowed);
    std::fflush(stdout);
}

void measure(const std::string & path) {
    const auto raster = ZMT::RASTER::RasterFile(path).read();
    const NBX::SO<GridData> grid(new GridData(raster.raster.get()));
    GeoTransformation::setNBXOrigin(grid->origin());
    const std::string name = std::filesystem::path(path).filename().string();
    {
        const NBX::SO<ChunkedLodTerrain> terrain(new ChunkedLodTerrain(grid.get()));
        Table table;
        addChunks(terrain,
                  ChunkedLodWindow::drawn(*terrain->impl(), 0, 0, terrain->impl()->paddedSize(),
                                          terrain->rootThreshold()),
                  table);
        print(name, "chunked", table, terrain->worstErrorRatio());
    }
    std::ostringstream statistics;
    auto * const before = std::cerr.rdbuf(statistics.rdbuf());
    const auto root = CreateGeometryTree::create(grid.get(), s_maxVertices);
    std::cerr.rdbuf(before);
    Table table;
    addTree(*root, table);
    print(name, "tree", table, 1.0);
}

} // namespace

int main(int argc, char ** argv) {
    try {
        std::puts("| raster | method | patches | largest stated | real where 0 is stated | real / stated | "
                  "allowed |\n"
                  "|---|---|---|---|---|---|---|");
        for (int i = 1; i < argc; ++i)
            measure(argv[i]);
        return 0;
    } catch (const std::exception & error) {
        std::fprintf(stderr, "error_benchmark: %s\n", error.what());
        return 1;
    }
}
