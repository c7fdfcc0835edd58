#pragma once

#include <optional>
#include <string>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/attribute.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/raster/geoextent.h>

#include "imageoptions.h"
#include "lighting.h"
#include "streamedfiles.h"
#include "sunlight.h"

namespace ZMT::RASTER {
class TiledGeoImagePyramid;
}

enum class LayerKind {
    HeightColors,
    Shading, ///< the light, of whatever `Lighting`
    Image,
    Draped, ///< areas that lie above the ground
};

/// What lies on the ground of a landscape. Every effect belongs in front of the terrain, lowest first; what
/// is draped has none, and stands for itself.
struct GroundLayer {
    LayerKind kind;
    std::string name; ///< for people
    NBX::SO<NBX::Attribute> effect;
    NBX::Bounds box; ///< where it lies, in scene coordinates; undefined for everywhere
    /// What it is read from while it is looked at; null for what is in memory.
    NBX::SO<ZMT::CORE::AsyncFile> file = nullptr;
};

/// Colours from green lowlands to white summits, and blue ones of sea, where there are heights below 0 and
/// above.
GroundLayer makeHeightColors(const ZMT::CORE::GridData & grid);

/// Everything but `Lighting::Vertex`, whose light is no layer: of the surface of `terrain`, made of `grid`,
/// with its heights times `exaggeration`. Ground gives back the sun's ambient share of its colour, and of the
/// rest the cosine of the angle between its normal and the sun. Throws `DataError` where OpenGL is missing,
/// and when the user cancels.
GroundLayer makeShading(Lighting lighting, const Sunlight & sun, const NBX::SO<ZMT::CORE::Terrain> & terrain,
                        const ZMT::CORE::GridData & grid, double exaggeration);

/// The light on a streaming terrain: that of its file, which is either baked or computed while drawing, and
/// otherwise a shading of its coarse heights. Throws `UsageError` where the file's light is not what was
/// asked for: by `lighting`, or, where it is baked, by `sun`.
GroundLayer makeStreamedShading(Lighting lighting, const std::optional<Sunlight> & sun,
                                const StreamedTerrain & streamed, double exaggeration);

/// A streaming texture that was opened. Throws `DataError` where it lies elsewhere than `terrain`, and
/// `UsageError` where it is to look otherwise than it was written.
GroundLayer layStreamedImage(const std::string & locator, const StreamedTexture & opened,
                             const ImageLook & look, const ZMT::RASTER::GeoExtent & terrain);

/// From the north-west, as on relief maps.
Sunlight defaultSun();

/// Throws `DataError` for an image that lies elsewhere than a terrain with this extent.
void checkPlace(const ZMT::RASTER::TiledGeoImagePyramid & image, const ZMT::RASTER::GeoExtent & terrain,
                const std::string & path);

/// A georeferenced image of any size, or a texture pyramid, streamed while the view moves, for a terrain with
/// this extent in the system `wkt`. The coarse levels of a large image that has none are made first, which
/// shows its progress; where there is no room for them a line says so. Throws `DataError`, and what the
/// raster layer throws, for one that cannot be read, lies elsewhere or lacks the bands, and after a cancel.
GroundLayer openImage(const std::string & path, const ImageLook & look,
                      const ZMT::RASTER::GeoExtent & terrain, const std::string & wkt);
