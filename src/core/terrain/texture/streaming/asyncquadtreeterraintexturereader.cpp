#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexturereader.h>

#include <memory>

#include <nbx/data/objectloader.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
#include <zmt/raster/gdal/geofile.h>

#include "asyncquadtreeterraintexture_impl.h"
#include "streamingtextureformat.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(AsyncQuadtreeTerrainTextureReader, NBX::ObjectReader)

bool AsyncQuadtreeTerrainTextureReader::canProduce(const NBX::ID & className) const {
    return AsyncQuadtreeTerrainTexture_Impl::ClassInfoNBX()->isA(className);
}

std::string AsyncQuadtreeTerrainTextureReader::objectFileSuffix() const {
    return "zts";
}

std::string AsyncQuadtreeTerrainTextureReader::objectFormatName() const {
    return "ZMT streaming texture";
}

NBX::SO<NBX::SharedObj> AsyncQuadtreeTerrainTextureReader::read(NBX::DataResource * resource) {
    NBX_CHECK(resource, L"no resource");
    if (!resource || resource->getObjectName().empty()) return nullptr;
    return AsyncQuadtreeTerrainTexture::load(AsyncFile::create(resource->getObjectName(), false), 0, 0);
}

bool AsyncQuadtreeTerrainTextureReader::readsFrom(const std::string & scheme) const {
    return scheme == "http" || scheme == "https";
}

namespace {

/// Those that were written without a key.
const bool s_isInstalled =
    (NBX::ObjectLoader::install(new AsyncQuadtreeTerrainTextureReader()),
     RASTER::GeoFile::install(std::make_unique<const RASTER::StreamedFileFormat>(
         "a streaming texture", StreamingTextureFormat::streamMagic, RASTER::GeoFileKind::Image)),
     true);

} // namespace

} // namespace ZMT::CORE
