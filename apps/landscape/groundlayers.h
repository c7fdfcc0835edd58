#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/attribute.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/terrain/texture/reliefimage.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/raster/geoextent.h>

#include "imageoptions.h"
#include "lighting.h"
#include "streamedfiles.h"

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
/// is draped has none, and stands for itself. How it looks is set by its landscape.
struct GroundLayer {
    LayerKind kind;
    std::string name; ///< for people
    NBX::SO<NBX::Attribute> effect;
    NBX::Bounds box; ///< where it lies, in scene coordinates; undefined for everywhere
    /// What it is read from while it is looked at; null for what is in memory.
    NBX::SO<ZMT::CORE::AsyncFile> file = nullptr;
    std::string source = {}; ///< path or URL; empty for what is made of the heights
    unsigned number = 0;     ///< of the layers with this name, in the order in which they were laid
    bool isOn = true;
    double opacity = 1.0; ///< of images alone

    bool isImage() const { return kind == LayerKind::Image; }
};

/// Colours from green lowlands to white summits, and blue ones of sea, where there are heights below 0 and
/// above.
GroundLayer makeHeightColors(const ZMT::CORE::GridData & grid);
/// Colours between those of a table, as `ZMT::CORE::ReliefImage`, whose heights are those of the map.
GroundLayer makeHeightColors(const ZMT::CORE::GridData & grid,
                             std::vector<ZMT::CORE::ReliefImage::Tint> tints);

/// Texels along a cell in the light map of a grid with cells that have shapes of their own, as at break
/// lines: 4, and with more than 2^20 cells fewer, so that the map has at most 2^24 texels; but never less
/// than the 1 that cells without shapes have.
double texelsOfShapedCell(unsigned columns, unsigned rows);

/// Everything but `Lighting::Vertex`, whose light is no layer: of the surface of `terrain`, made of `grid`,
/// with its heights times `exaggeration`. Ground gives back the sun's ambient share of its colour, and of the
/// rest the cosine of the angle between its normal and the sun. Throws `DataError` where OpenGL is missing,
/// and when the user cancels.
GroundLayer makeShading(Lighting lighting, const Sunlight & sun, const NBX::SO<ZMT::CORE::Terrain> & terrain,
                        const ZMT::CORE::GridData & grid, double exaggeration);

/// The light on a streaming terrain, which messages call `name`. Without `lighting` that of its file, which
/// is either baked or computed while drawing; for a relief, and where the file has none, a shading of its
/// coarse heights; without `lighting` a file whose light cannot be read also, which is reported at level 2
/// under "light map". Throws `UsageError` where the file's light is not what was asked for: by `lighting`,
/// or, where it is baked, by `sun`; `DataError` where it was asked for and cannot be read. On any thread.
GroundLayer makeStreamedShading(const std::optional<Lighting> & lighting, const std::optional<Sunlight> & sun,
                                const StreamedTerrain & streamed, const std::string & name,
                                double exaggeration);

/// A streaming texture that was opened. Throws `DataError` where it lies elsewhere than `terrain`, and
/// `UsageError` where it is to look otherwise than it was written.
GroundLayer layStreamedImage(const std::string & locator, const StreamedTexture & opened,
                             const ImageLook & look, const ZMT::RASTER::GeoExtent & terrain);

/// From the north-west, as on relief maps.
Sunlight defaultSun();

/// The effect that lays a texture on all below it.
NBX::SO<ZMT::CORE::DecalTerrainTexturingEffect> makeDecal(const NBX::SO<ZMT::CORE::TerrainTexture> & texture,
                                                          double opacity = 1.0);

/// Throws `DataError` for an image that lies elsewhere than a terrain with this extent.
void checkPlace(const ZMT::RASTER::TiledGeoImagePyramid & image, const ZMT::RASTER::GeoExtent & terrain,
                const std::string & path);

/// The pixels of a georeferenced image of any size, or of a texture pyramid, for a terrain with this extent
/// in the system `wkt`; the opacity of `look` is left to the caller. The coarse levels of a large image that
/// has none are made first, which shows its progress; where there is no room for them a line says so. Throws
/// `DataError`, and what the raster layer throws, for one that cannot be read, lies elsewhere or lacks the
/// bands, and after a cancel.
NBX::SO<ZMT::RASTER::TiledGeoImagePyramid> openPixels(const std::string & path, const ImageLook & look,
                                                      const ZMT::RASTER::GeoExtent & terrain,
                                                      const std::string & wkt);

/// The same as a layer that is streamed while the view moves. Reads it once as a whole.
GroundLayer openImage(const std::string & path, const ImageLook & look,
                      const ZMT::RASTER::GeoExtent & terrain, const std::string & wkt);
