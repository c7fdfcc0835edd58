// The strip of the surface and the four border lines come as numbers of the lattice's vertices. They get
// local numbers, then positions; last each border line gets a curtain down to the wall, whose lower vertices
// are new. Curtains at the border of the terrain are kept apart, as the outer wall.

#include "chunkedlodpatchmesh.h"

#include <array>
#include <bit>

#include "chunkedlodmesh.h"
#include "chunkedlodterrainimpl.h"
#include "chunkedlodterrainpatch.h"
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/frame/geotransformation.h>

namespace ZMT::CORE {

namespace {

using Patch = ChunkedLodTerrain::Patch;
using Vertex = NBX::Vector3Base<float>;

constexpr unsigned s_sides = 4;

/// Gives numbers of the store of heights local ones, in the order in which they come: a hash table with
/// open addressing, since this is most of the work on a mesh.
class LocalNumbers {
public:
    explicit LocalNumbers(const std::vector<unsigned> & numbers)
        : bits_(static_cast<unsigned>(std::bit_width(2 * numbers.size()))), slots_(std::size_t(1) << bits_) {
        locals_.reserve(numbers.size());
        for (const unsigned number : numbers)
            locals_.push_back(static_cast<unsigned short>(add(number)));
    }

    /// For each number given.
    const std::vector<unsigned short> & locals() const { return locals_; }
    /// By local number.
    const std::vector<unsigned> & different() const { return different_; }
    /// `number` is one of those given.
    unsigned short operator[](unsigned number) const {
        return static_cast<unsigned short>(slots_[slotOf(number)].local);
    }

private:
    struct Slot {
        unsigned number = s_noNumber, local = 0;
    };
    static constexpr unsigned s_noNumber = ~0U;

    std::size_t slotOf(unsigned number) const {
        std::size_t slot = (number * 0x9E3779B1U) >> (32 - bits_);
        while (slots_[slot].number != number && slots_[slot].number != s_noNumber)
            slot = (slot + 1) % slots_.size();
        return slot;
    }

    unsigned add(unsigned number) {
        Slot & slot = slots_[slotOf(number)];
        if (slot.number == s_noNumber) {
            slot = {number, static_cast<unsigned>(different_.size())};
            different_.push_back(number);
        }
        return slot.local;
    }

    unsigned bits_;
    std::vector<Slot> slots_;
    std::vector<unsigned short> locals_;
    std::vector<unsigned> different_;
};

/// The lists of numbers that a mesh is made of.
struct Outline {
    std::vector<unsigned> strip;
    std::array<std::vector<unsigned>, s_sides> sides;
};

Outline buildOutline(const Patch & patch) {
    const ChunkedLodTerrain::Impl & lattice = *patch.terrain()->impl();
    Outline outline;
    for (unsigned side = 0; side < s_sides; ++side)
        ChunkedLodMesh::buildBoundary(lattice, patch.x(), patch.y(), patch.size(), patch.threshold(),
                                      outline.sides[side], side);
    ChunkedLodMesh::buildMesh(lattice, patch.x(), patch.y(), patch.size(), patch.threshold(), outline.strip,
                              ChunkedLodPatchMesh::s_maxEntries);
    return outline;
}

std::vector<Vertex> positionsOf(const ChunkedLodTerrain & terrain, const std::vector<unsigned> & numbers) {
    const ChunkedLodTerrain::Impl & lattice = *terrain.impl();
    const ChunkedLodTerrain::Point origin = terrain.sceneOrigin();
    const double dx = terrain.cellSizeX(), dy = terrain.heightScale(), dz = terrain.cellSizeY();
    std::vector<Vertex> positions;
    positions.reserve(numbers.size());
    for (const unsigned n : numbers) {
        const unsigned column = n % lattice.sizeX(), row = n / lattice.sizeX();
        positions.emplace_back(origin +
                               ChunkedLodTerrain::Point(dx * column, dy * lattice.heights()[n], dz * row));
    }
    return positions;
}

bool isOuter(const Patch & patch, unsigned side) {
    const ChunkedLodTerrain::Impl & lattice = *patch.terrain()->impl();
    switch (side) {
    case ChunkedLodMesh::S_LowX:
        return patch.x() == 0;
    case ChunkedLodMesh::S_LowY:
        return patch.y() == 0;
    case ChunkedLodMesh::S_HighX:
        return patch.x() + patch.size() >= lattice.sizeX();
    default:
        return patch.y() + patch.size() >= lattice.sizeY();
    }
}

/// A strip turns by repeating vertices; what it repeats has no area.
unsigned trianglesOf(const std::vector<unsigned> & strip) {
    unsigned count = 0;
    for (std::size_t i = 2; i < strip.size(); ++i)
        count += strip[i] != strip[i - 1] && strip[i] != strip[i - 2] && strip[i - 1] != strip[i - 2];
    return count;
}

float wallInScene(const Patch & patch) {
    const ChunkedLodTerrain & terrain = *patch.terrain();
    const double bottom = GeoTransformation::geo2nbxOffset().y + terrain.origin().y;
    return static_cast<float>(bottom + patch.wall());
}

} // namespace

ChunkedLodPatchMesh::ChunkedLodPatchMesh(const Patch & patch) {
    const Outline outline = buildOutline(patch);
    const std::size_t meshIndicesSize = outline.strip.size();
    NBX_CHECK(meshIndicesSize < 0xffff, L"index strip too long");

    // A strip has two triangles a vertex, fewer at the border: even with the curtains of the largest patch
    // the vertices keep within 16 bits.
    const LocalNumbers locals(outline.strip);
    triangles = trianglesOf(outline.strip);
    surface.indices = locals.locals();
    surface.ranges.push_back(static_cast<unsigned>(meshIndicesSize));
    vertices = positionsOf(*patch.terrain(), locals.different());
    const float wall = wallInScene(patch);
    for (unsigned side = 0; side < s_sides; ++side) {
        Strips & curtains = isOuter(patch, side) ? outerWall : surface;
        for (const unsigned number : outline.sides[side]) {
            const unsigned short top = locals[number];
            curtains.indices.push_back(top);
            curtains.indices.push_back(static_cast<unsigned short>(vertices.size()));
            vertices.emplace_back(vertices[top].x, wall, vertices[top].z);
        }
        curtains.ranges.push_back(static_cast<unsigned>(curtains.indices.size()));
    }
}

} // namespace ZMT::CORE
