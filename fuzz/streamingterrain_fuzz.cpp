// Any bytes as a streaming terrain: no crash, no hang, no memory beyond what the bytes justify.

#include <cstddef>
#include <cstdint>

#include <nbx/data/memorydataresource.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

namespace {

using namespace ZMT::CORE;

void look(GRID::GridTerrainTile & tile) {
    if (const auto data = tile.requestTileData(1.0, true, nullptr)) {
        const unsigned last = data->cells() - 1;
        std::uint32_t sum = data->value(0, 0) + data->value(last, last);
        for (unsigned border = 0; border < 4; ++border)
            for (unsigned k = 0; k < data->borderLODs(); ++k)
                sum += data->borderValue(border, k, data->borderLODValues(k) - 1);
        if (sum == UINT32_MAX) __builtin_trap();
    }
    tile.hasUndefValues();
    for (unsigned i = 0; tile.level() > -2 && i < 4; ++i)
        if (const auto child = tile.child(i, false)) look(*child);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    NBX::ErrorHandler::setHandler([](const NBX::ErrorReport &) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t * data, std::size_t size) {
    const NBX::SO<NBX::DataResource> bytes(
        new NBX::MemoryDataResource(data, static_cast<unsigned>(size), false));
    if (const auto terrain = GRID::AsyncGridTerrain::load(AsyncFile::create(bytes))) {
        look(*terrain->rootTile());
        const NBX::Bounds box = terrain->geoBoundingBox();
        for (const double share : {0.0, 0.3, 0.5, 1.0})
            terrain->calculateHeight(box.point(share, 0.0, share), false);
        terrain->lowestPoint();
        terrain->highestPoint();
    }
    NBX::MainMemoryManager::instance()->clear();
    return 0;
}
