#pragma once

#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/shape/polygonset.h>

namespace ZMT::CORE {

class TerrainTexturedGeometry;

/// Makes triangles that take the textures of the ground.
class CreateTexturedTriangles {
public:
    /// One set of several, null for none; they lose their own colours and textures.
    static NBX::SO<NBX::PolygonSet> merged(const std::vector<NBX::SO<NBX::PolygonSet>> & sets);
    /// Of a set in geo coordinates, which loses them too. Null for null.
    static NBX::SO<TerrainTexturedGeometry> create(NBX::SO<NBX::PolygonSet> set);
};

} // namespace ZMT::CORE
