#pragma once

#include <cstdint>

#include <nbx/container/sequence/iterator.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/texturedtriangles/texturewrapper.h>

namespace ZMT::CORE {

/// Reduces a scene to textured triangles, one mesh for each source texture, and triangles without texture.
///
/// (1) Every triangle of the scene that is drawn, and whose corners are numbers, ends in exactly one mesh or
///     in the untextured set, or is split there into triangles of the same area in sum.
/// (2) Meshes, and the triangles in them, stand in the order in which they are met; so the same scene gives
///     the same meshes in any process.
class TriangleCollector {
public:
    /// The triangles under one texture: a list of triangles without indices, with one colour and one
    /// coordinate of set 0 for each vertex, without normals, in the frame of the scene. `texture` is never
    /// null in what `collect` gives. In a scene with model numbers each vertex has its own in
    /// `ModelNumber::unit`.
    struct TexturedMesh {
        NBX::SO<TextureWrapper> texture;
        NBX::SO<NBX::PolygonSet> geometry;
        bool operator==(const TexturedMesh &) const = default;
    };

    /// The textured meshes, none for a scene without; `untextured` is set to the triangles without texture,
    /// null when there are none. Null after a cancel. Turns the shapes of `scene` into polygon sets, and with
    /// `uniqueParameterization` puts a default texture at its head. Null is reported under "scene".
    ///
    /// Triangles that repeat their texture more than `maxTextureRepeat` times along s or t are split; 0 or
    /// less leaves them alone. `splitRepeats` moves the coordinates of each triangle by whole repeats near
    /// the unit square, along axes where the texture repeats.
    ///
    /// Reported at level 2, with numbers, and left out: triangles with corners that are no numbers.
    /// Coordinates that are no numbers become 0, and a triangle that would fall into more than
    /// `maxPiecesOfTriangle` stays whole.
    static NBX::SO<NBX::Iterator<TexturedMesh>> collect(NBX::SO<NBX::SceneThing> scene,
                                                        NBX::SO<NBX::PolygonSet> & untextured,
                                                        double maxTextureRepeat, bool uniqueParameterization,
                                                        bool splitRepeats);

    /// Number of times that a triangle was split in two, since the process began.
    static std::uint64_t splits();

    static constexpr unsigned maxPiecesOfTriangle = 1U << 16;
    /// Splits of one mesh; what is left then stays whole, and is reported.
    static constexpr unsigned maxSplitsOfMesh = 1U << 20;
};

} // namespace ZMT::CORE
