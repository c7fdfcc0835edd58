#pragma once

#include <string>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/attribute.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/geoextent.h>

#include "sunlight.h"

/// What lies on the ground of a landscape. Every effect belongs in front of the terrain, lowest first.
struct GroundLayer {
    std::string name;
    NBX::SO<NBX::Attribute> effect;
    NBX::Bounds box; ///< where it lies, in scene coordinates; undefined for everywhere
};

/// How a terrain is lit.
enum class Lighting {
    Relief,  ///< a shading of the heights, one texel a vertex at most
    Vertex,  ///< OpenGL's lights on the normals of the vertices
    Static,  ///< baked into a light map
    Dynamic, ///< for each pixel, by a map of normals
};

/// relief, vertex, static or dynamic. Throws `UsageError`.
Lighting parseLighting(const std::string & text);

/// Colours from green lowlands to white summits, and blue ones of sea, where there are heights below 0 and
/// above.
GroundLayer makeHeightColors(const ZMT::CORE::GridData & grid);

/// Everything but `Lighting::Vertex`, whose light is no layer: of the surface of `terrain`, made of `grid`,
/// with its heights times `exaggeration`. Ground gives back the sun's ambient share of its colour, and of the
/// rest the cosine of the angle between its normal and the sun. Throws `DataError` where OpenGL is missing,
/// and when the user cancels.
GroundLayer makeShading(Lighting lighting, const Sunlight & sun, const NBX::SO<ZMT::CORE::Terrain> & terrain,
                        const ZMT::CORE::GridData & grid, double exaggeration);

/// A georeferenced image of any size, or a texture pyramid, streamed while the view moves, for a terrain with
/// this extent in the system `wkt`. Throws `DataError`, and what the raster layer throws, for one that cannot
/// be read or lies elsewhere.
GroundLayer openImage(const std::string & path, const ZMT::RASTER::GeoExtent & terrain,
                      const std::string & wkt);
