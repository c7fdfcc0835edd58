#include "patchtexturewriter.h"

#include <algorithm>

#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/raster/tiledgeoimage.h>

#include "tileencoding.h"

namespace ZMT::CORE {

namespace {

using StreamingTextureFormat::PlanBox;

/// Tiles reach so much beyond their patch, on each side, that neighbours overlap and filters see no seam.
constexpr double s_margin = 0.02;

PlanBox widened(const PlanBox & box) {
    const double dx = s_margin * (box.maxX - box.minX), dy = s_margin * (box.maxY - box.minY);
    return {box.minX - dx, box.minY - dy, box.maxX + dx, box.maxY + dy};
}

} // namespace

PatchTextureWriter::Handle PatchTextureWriter::write(const NBX::SO<GeometryPatch> & patch,
                                                     const Step & step) {
    if (!writer_.update(step.progress) || !patch) return nullptr;
    const NBX::Bounds box = GeoTransformation::nbx2geoTf(patch->boundingBox());
    if (!box.isDefined()) return nullptr;
    const PlanBox place{box.getLLF().x, box.getLLF().z, box.getURB().x, box.getURB().z};
    const PlanBox wide = widened(place);
    const int index =
        pyramid_.getOverviewIndex(wide.minX, wide.minY, wide.maxX, wide.maxY, tileSize_, tileSize_);
    // Below a tile of the finest level nothing can be gained.
    if (index < 0 || (index == 0 && step.parentOverview == 0)) return nullptr;
    const NBX::SO<RASTER::TiledGeoImage> overview = pyramid_.overview(static_cast<unsigned>(index));
    if (!overview) return nullptr;
    const NBX::SO<RASTER::GeoImage> image =
        overview->getGeoImage(wide.minX, wide.minY, wide.maxX, wide.maxY, 0, 0);
    if (!image || !image->image()) return nullptr;

    const StreamingTextureWriter::Children children = writeChildren(*patch, step, index);
    patch->unloadChildren();
    // What was read last may be missing.
    if (writer_.isCanceled()) return nullptr;
    const auto make = [image, place, tileSize = tileSize_, pixels = pixels_] {
        return TileEncoding::encode(*image, place, tileSize, pixels);
    };
    return writer_.tiles().add(make, children);
}

StreamingTextureWriter::Children PatchTextureWriter::writeChildren(GeometryPatch & patch, const Step & step,
                                                                   int overview) {
    using StreamingTextureFormat::childCount;
    const unsigned children = patch.children();
    if (children > childCount)
        NBX_REPORT(2, L"children <= 4", L"geometry patch has too many children: " << children);
    StreamingTextureWriter::Children result;
    // Nobody reads deeper trees.
    if (step.level + 1 >= StreamingTextureFormat::maxLevels) return result;
    const double share = step.share / childCount;
    for (unsigned i = 0; i < std::min(children, childCount); ++i)
        result[i] = write(patch.child(i), {overview, step.level + 1, step.progress + i * share, share});
    return result;
}

} // namespace ZMT::CORE
