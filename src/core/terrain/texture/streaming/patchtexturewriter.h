#pragma once

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

#include "streamingtexturewriter.h"

namespace ZMT::CORE {

/// Gives every patch of a tree a tile from an image pyramid.
class PatchTextureWriter {
public:
    using Handle = StreamingTextureWriter::Handle;

    /// `pyramid` and `writer` are borrowed.
    PatchTextureWriter(const RASTER::TiledGeoImagePyramid & pyramid, unsigned tileSize,
                       StreamingTextureOptions::Pixels pixels, StreamingTextureWriter & writer)
        : pyramid_(pyramid), tileSize_(tileSize), pixels_(pixels), writer_(writer) {}

    /// Writes the tiles of a tree, the children of each first; the root's is null where there is none.
    Handle write(const NBX::SO<GeometryPatch> & root) { return write(root, Step{}); }

private:
    /// Where the walk has come to.
    struct Step {
        int parentOverview = -1; ///< that the parent's tile was cut from; -1 at the root
        unsigned level = 0;
        double progress = 0.0, share = 1.0;
    };

    Handle write(const NBX::SO<GeometryPatch> & patch, const Step & step);
    StreamingTextureWriter::Children writeChildren(GeometryPatch & patch, const Step & step, int overview);

    const RASTER::TiledGeoImagePyramid & pyramid_;
    const unsigned tileSize_;
    const StreamingTextureOptions::Pixels pixels_;
    StreamingTextureWriter & writer_;
};

} // namespace ZMT::CORE
