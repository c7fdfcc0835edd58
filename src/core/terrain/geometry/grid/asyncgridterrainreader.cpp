#include "asyncgridterrainreader.h"

#include <array>
#include <cstring>
#include <memory>

#include <nbx/data/objectloader.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/raster/gdal/geofile.h>

#include "core/terrain/geometry/grid/model/terrainfileformat.h"

namespace ZMT::CORE::GRID {

NBX_CLASS_IMPL(AsyncGridTerrainReader, NBX::ObjectReader)

namespace {

/// Of what lies elsewhere there are no bytes yet.
bool mayBeTerrain(const NBX::DataResource & resource) {
    std::array<char, 8> magic;
    const unsigned size = resource.size() == 0 ? 0 : resource.read(0, magic.data(), magic.size());
    return resource.size() == 0 ||
           (size == magic.size() &&
            std::memcmp(magic.data(), TerrainFileFormat::fileMagic, magic.size()) == 0);
}

[[maybe_unused]] const bool s_isInstalled =
    (NBX::ObjectLoader::install(new AsyncGridTerrainReader()),
     RASTER::GeoFile::install(std::make_unique<const RASTER::StreamedFileFormat>(
         "a streaming terrain", TerrainFileFormat::fileMagic, RASTER::GeoFileKind::Heights)),
     true);

} // namespace

bool AsyncGridTerrainReader::canProduce(const NBX::ID & className) const {
    return AsyncGridTerrain::ClassInfoNBX()->isA(className);
}

std::string AsyncGridTerrainReader::objectFileSuffix() const {
    return "ztt";
}

std::string AsyncGridTerrainReader::objectFormatName() const {
    return "ZMT streaming terrain";
}

NBX::SO<NBX::SharedObj> AsyncGridTerrainReader::read(NBX::DataResource * resource) {
    NBX_CHECK(resource, L"no resource");
    if (!resource || !mayBeTerrain(*resource)) return nullptr;
    std::wstring problem;
    const std::wstring name = resource->getObjectName();
    const NBX::SO<AsyncGridTerrain> terrain =
        name.empty()
            ? AsyncGridTerrain::load(AsyncFile::create(NBX::SO<NBX::DataResource>(resource)), false, &problem)
            : AsyncGridTerrain::load(name, false, &problem);
    if (!terrain) throw NBX::IOError(problem);
    return terrain;
}

bool AsyncGridTerrainReader::readsFrom(const std::string & scheme) const {
    return scheme == "http" || scheme == "https";
}

} // namespace ZMT::CORE::GRID
