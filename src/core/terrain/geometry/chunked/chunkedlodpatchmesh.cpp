// The strip of the surface and the four border lines come as numbers of the lattice's vertices. They get
// local numbers, then positions; last each border line gets a curtain down to the wall, whose lower vertices
// are new. Curtains at the border of the terrain are kept apart, as the outer wall.

#include "chunkedlodpatchmesh.h"

#include <bit>

#include "chunkedlodmesh.h"
#include "chunkedlodterrainimpl.h"
#include "chunkedlodterrainpatch.h"
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/frame/geotransformation.h>

namespace ZMT::CORE {

namespace {

using Patch = ChunkedLodTerrain::Patch;
using Point = StripMesh::Point;

constexpr unsigned s_sides = 4;

/// Gives numbers of the store of heights local ones, in the order in which they come: a hash table with
/// open addressing, since this is most of the work on a mesh.
class LocalNumbers {
public:
    explicit LocalNumbers(const std::vector<unsigned> & numbers)
        : bits_(static_cast<unsigned>(std::bit_width(2 * numbers.size()))), slots_(std::size_t(1) << bits_) {
        locals_.reserve(numbers.size());
        for (const unsigned number : numbers)
            locals_.push_back(add(number));
    }

    /// For each number given.
    const std::vector<unsigned> & locals() const { return locals_; }
    /// By local number.
    const std::vector<unsigned> & different() const { return different_; }
    /// `number` is one of those given.
    unsigned operator[](unsigned number) const { return slots_[slotOf(number)].local; }

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
    std::vector<unsigned> locals_;
    std::vector<unsigned> different_;
};

std::vector<unsigned> stripOf(const Patch & patch) {
    std::vector<unsigned> strip;
    ChunkedLodMesh::buildMesh(*patch.terrain()->impl(), patch.x(), patch.y(), patch.size(), patch.threshold(),
                              strip, ChunkedLodPatchMesh::s_maxEntries);
    return strip;
}

/// In geo coordinates less `zero`.
std::vector<Point> positionsOf(const ChunkedLodTerrain & terrain, const Point & zero,
                               const std::vector<unsigned> & numbers) {
    const ChunkedLodTerrain::Impl & lattice = *terrain.impl();
    const Point origin = terrain.origin() - zero + Point(0.0, terrain.minHeight(), 0.0);
    const double dx = terrain.cellSizeX(), dy = terrain.heightScale(), dz = terrain.cellSizeY();
    std::vector<Point> positions;
    positions.reserve(numbers.size());
    for (const unsigned n : numbers) {
        const unsigned column = n % lattice.sizeX(), row = n / lattice.sizeX();
        positions.push_back(origin + Point(dx * column, dy * lattice.heights()[n], dz * row));
    }
    return positions;
}

void setSurface(StripMesh & mesh, const Patch & patch, const LocalNumbers & locals, const Point & zero) {
    mesh.vertices = positionsOf(*patch.terrain(), zero, locals.different());
    mesh.strips.indices = locals.locals();
    mesh.strips.endStrip();
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

double wallInScene(const Patch & patch) {
    return GeoTransformation::geo2nbxOffset().y + patch.terrain()->origin().y + patch.wall();
}

} // namespace

StripMesh ChunkedLodPatchMesh::surfaceOf(const Patch & patch, const Point & zero) {
    StripMesh mesh;
    setSurface(mesh, patch, LocalNumbers(stripOf(patch)), zero);
    return mesh;
}

ChunkedLodPatchMesh::ChunkedLodPatchMesh(const Patch & patch) {
    const std::vector<unsigned> strip = stripOf(patch);
    const std::size_t meshIndicesSize = strip.size();
    NBX_CHECK(meshIndicesSize < 0xffff, L"index strip too long");

    // A strip has two triangles a vertex, fewer at the border: even with the curtains of the largest patch
    // the vertices keep within 16 bits.
    const LocalNumbers locals(strip);
    setSurface(*this, patch, locals, GeoTransformation::nbx2geoOffset());
    surfaceVertices = vertices.size();
    surfaceTriangles = triangles();
    const double wall = wallInScene(patch);
    std::vector<unsigned> border;
    for (unsigned side = 0; side < s_sides; ++side) {
        ChunkedLodMesh::buildBoundary(*patch.terrain()->impl(), patch.x(), patch.y(), patch.size(),
                                      patch.threshold(), border, side);
        for (unsigned & number : border)
            number = locals[number];
        appendCurtain(isOuter(patch, side) ? outerWall : strips, border, wall);
    }
}

} // namespace ZMT::CORE
