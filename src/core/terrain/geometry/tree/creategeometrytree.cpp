#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <vector>

#include <nbx/object/progress.h>
#include <zmt/raster/histogram.h>
#include <zmt/raster/rasterdata.h>

#include "treebuildpool.h"
#include "treenodebuilder.h"

namespace ZMT::CORE {

namespace {

constexpr unsigned s_leastMaxVertices = 50;

void writeStatistics(const RASTER::RasterData & raster) {
    const RASTER::Histogram histogram(&raster);
    const auto precision = std::cerr.precision(15);
    std::cerr << "creating terrain for:\n"
              << "\tgrid:\t" << raster.cellsX() << "x" << raster.cellsY() << " vertices\n"
              << "\n"
              << "\tmin X:  \t" << raster.minX() << "\n"
              << "\tmax X:  \t" << raster.maxX() << "\n"
              << "\tdelta X:\t" << raster.maxX() - raster.minX() << "\n"
              << "\n"
              << "\tmin Y:  \t" << raster.minY() << "\n"
              << "\tmax Y:  \t" << raster.maxY() << "\n"
              << "\tdelta Y:\t" << raster.maxY() - raster.minY() << "\n"
              << "\n"
              << "\tnumber of defined height values:  \t" << histogram.numberOfDefinedValues() << "\n"
              << "\tnumber of undefined height values:\t" << histogram.numberOfUndefinedValues() << "\n"
              << "\tnumber of different height values:\t" << histogram.numberOfDifferentValues() << "\n"
              << "\n"
              << "\tminimum height value:\t" << histogram.minimum() << "\n"
              << "\tmaximum height value:\t" << histogram.maximum() << "\n"
              << "\tdelta height value:  \t" << histogram.maximum() - histogram.minimum() << "\n"
              << "\taverage height value:\t" << histogram.average() << "\n"
              << std::endl;
    std::cerr.precision(precision);
}

/// One for each node with children. They are drawn before any node is built, so that each has its own,
/// whichever thread gets to it, and nothing else draws meanwhile.
std::vector<unsigned> drawForNodes(std::size_t nodes) {
    std::vector<unsigned> draws(nodes);
    for (unsigned & draw : draws)
        draw = static_cast<unsigned>(std::rand());
    return draws;
}

} // namespace

NBX::SO<GeometryPatch> CreateGeometryTree::create(GeometryData * data, unsigned maxVertices,
                                                  unsigned threads) {
    NBX_CHECK(maxVertices >= 50, L"maxVertices must be >= 50: " << maxVertices);
    const NBX::SO<GridData> grid(static_cast<GridData *>(data));
    NBX_CHECK(grid, L"no grid");
    if (!grid) return nullptr;

    NBX::Progress progress("generating terrain LOD model", 1.0);
    if (grid->rasterData()) writeStatistics(*grid->rasterData());
    const NBX::Bounds box = data->boundingBox();
    const double wall = box.getLLF().y - (box.getURB().y - box.getLLF().y) * 0.2;
    const TreePart whole{NBX::Area(0, 0, grid->sizeX() - 1, grid->sizeY() - 1)};
    if (grid->vertices() == 0) {
        checkDomain(grid.get(), whole.domain);
        progress.finish();
        return nullptr;
    }

    TreeFrame frame{grid, wall, std::max(maxVertices, s_leastMaxVertices), {}};
    frame.draws = drawForNodes(TreePlan(frame.maxVertices).innerNodes(whole));
    const auto goOn = [&progress](double value) { return progress.update(value, "", ""); };
    NBX::SO<GeometryPatch> root;
    MyTinPointAccessor::Point centre;
    if (threads <= 1) {
        TreeNodeBuilder builder(frame, goOn);
        KeptVertices kept;
        root = builder.build(whole, 0, kept);
        centre = builder.centre();
    } else {
        TreeBuildPool pool(frame, whole);
        root = pool.build(threads, goOn);
        centre = pool.centre();
    }
    if (!root) return nullptr;
    // As if the nodes had been built here one after the other: workers leave what belongs to the process
    // alone.
    if (!frame.draws.empty()) {
        MyTinPointAccessor::currentData = grid;
        MyTinPointAccessor::centerPoint = centre;
    }
    progress.finish();
    return root;
}

} // namespace ZMT::CORE
