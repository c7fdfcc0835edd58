#include <zmt/core/terrain/geometry/view/builtterrain.h>

#include <algorithm>
#include <map>
#include <memory>
#include <tuple>

#include <nbx/data/objectstreamreader.h>
#include <nbx/object/serializationmanager.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/raster/gdal/geofile.h>

#include "core/terrain/frame/storedreference.h"
#include "core/terrain/geometry/tree/treeplan.h"

namespace ZMT::CORE {

namespace {

/// What is stored of a patch besides its lists, and of each vertex in the lists: its number, the height of
/// the parent, its places in strips and borders.
constexpr double s_bytesOfLeaf = 170.0, s_bytesOfNode = 330.0, s_bytesOfVertex = 16.0;

/// A vertex beside the grid is a point, and has a share in the triangles of its cells.
constexpr double s_bytesOfMicroVertex = 80.0;

/// Adds up the nodes of a tree. Most rectangles of a level have the same size, and count the same.
class StoredSize {
public:
    explicit StoredSize(unsigned maxVertices) : plan_(maxVertices) {}

    double of(const TreePart & part) {
        if (plan_.isLeaf(part)) return s_bytesOfLeaf;
        const double w = part.domain.getWidth(), h = part.domain.getHeight();
        const std::tuple size(part.domain.getWidth(), part.domain.getHeight(), part.level);
        if (const auto known = known_.find(size); known != known_.end()) return known->second;
        // Half as many vertices as triangles, and those of the border.
        const double vertices = std::min((w + 1.0) * (h + 1.0), 0.5 * plan_.maxVertices() + w + h);
        double bytes = s_bytesOfNode + s_bytesOfVertex * vertices;
        for (const TreePart & child : TreePlan::cut(part))
            bytes += of(child);
        return known_[size] = bytes;
    }

private:
    TreePlan plan_;
    std::map<std::tuple<unsigned, unsigned, unsigned>, double> known_;
};

/// So that whoever asks the one door for files is told what such a file is, also where it has no place.
class BuiltTerrainGeoFile : public RASTER::GeoFileFormat {
public:
    std::string name() const override { return "a built terrain"; }
    RASTER::GeoFileKind kindOf(const std::string & path) const override {
        const std::string start = firstBytes(path, s_magicBytes);
        return NBX::ObjectStreamReader::hasMagic(start.data(), start.size()) ? RASTER::GeoFileKind::Heights
                                                                             : RASTER::GeoFileKind::Unknown;
    }

private:
    static constexpr std::size_t s_magicBytes = 8;
};

const bool s_isInstalled = (RASTER::GeoFile::install(std::make_unique<const BuiltTerrainGeoFile>()), true);

} // namespace

BuiltTerrain::BuiltTerrain() = default;

BuiltTerrain::BuiltTerrain(const NBX::SO<Terrain> & terrain, const RASTER::GeoReference & reference,
                           unsigned seed, unsigned maxVertices)
    : terrain_(terrain), reference_(reference), seed_(seed), maxVertices_(maxVertices) {
    NBX_CHECK(terrain, L"no terrain");
}

BuiltTerrain::~BuiltTerrain() = default;

NBX::SO<GridData> BuiltTerrain::grid() const {
    return terrain_ ? NBX::soCast<GridData>(terrain_->data()) : nullptr;
}

bool BuiltTerrain::isFile(const std::string & path) {
    return BuiltTerrainGeoFile().kindOf(path) == RASTER::GeoFileKind::Heights;
}

std::uint64_t BuiltTerrain::expectedBytes(unsigned sizeX, unsigned sizeY, unsigned maxVertices,
                                          unsigned microVertices) {
    if (sizeX < 2 || sizeY < 2) return 0;
    const double raster = double(sizeX) * sizeY * sizeof(float);
    return static_cast<std::uint64_t>(raster + s_bytesOfMicroVertex * microVertices +
                                      StoredSize(maxVertices).of({NBX::Area(0, 0, sizeX - 1, sizeY - 1)}));
}

void BuiltTerrain::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::SharedObj>(m, static_cast<NBX::SharedObj *>(this));
    m.attribute("terrain", terrain_);
    serializeReference(m, reference_);
    m.attribute("seed", seed_);
    m.attribute("maxVertices", maxVertices_);
    if (!m.isReading()) return;
    const NBX::SO<GridData> data = grid();
    if (!data || data->sizeX() < 2 || data->sizeY() < 2) throw NBX::IOError(L"stored terrain has no heights");
    const NBX::SO<GeometryPatch> root = terrain_->root();
    if (!root || root->data() != data) throw NBX::IOError(L"stored terrain has no tree");
}

NBX_STORED_CLASS_IMPL(BuiltTerrain, NBX::SharedObj)

} // namespace ZMT::CORE
