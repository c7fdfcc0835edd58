#include <zmt/util/compressedtexture/texturepyramidreader.h>

#include <cstring>
#include <memory>

#include <nbx/data/objectloader.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/gdal/projectionfile.h>
#include <zmt/raster/gdal/warpedimagepyramid.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramid.h>

#include "texturepyramidformat.h"

namespace ZMT::UTIL {

NBX_CLASS_IMPL(TexturePyramidReader, NBX::ObjectReader)

bool TexturePyramidReader::canProduce(const NBX::ID & className) const {
    return TexturePyramid::ClassInfoNBX()->isA(className);
}

std::string TexturePyramidReader::objectFileSuffix() const {
    return "ztp";
}

std::string TexturePyramidReader::objectFormatName() const {
    return "ZMT terrain texture";
}

NBX::SO<NBX::SharedObj> TexturePyramidReader::read(NBX::DataResource * resource) {
    NBX_CHECK(resource, L"no resource");
    if (!resource || resource->getObjectName().empty()) return nullptr;
    return CompressedTexture::load(resource->getObjectName());
}

namespace {

/// Texture pyramids at the door for files.
class TexturePyramidGeoFile : public RASTER::GeoFileFormat {
public:
    std::string name() const override { return "a texture pyramid"; }

    RASTER::GeoFileKind kindOf(const std::string & path) const override {
        using namespace TexturePyramidFormat;
        PyramidHeader header;
        const std::string bytes = firstBytes(path, sizeof header);
        if (bytes.size() != sizeof header) return RASTER::GeoFileKind::Unknown;
        std::memcpy(&header, bytes.data(), sizeof header);
        scramble(header, CompressedTexture::getEncryptionKey());
        const bool isPyramid = std::memcmp(header.magic, pyramidMagic, sizeof header.magic) == 0;
        return isPyramid ? RASTER::GeoFileKind::Image : RASTER::GeoFileKind::Unknown;
    }

    NBX::SO<RASTER::TiledGeoImagePyramid> openImage(const std::string & path,
                                                    const std::string & wkt) const override {
        const NBX::SO<TexturePyramid> pyramid =
            CompressedTexture::load(NBX::StringUtils::Utf8String2WString(path));
        if (!pyramid)
            throw NBX::InputException(L"is a damaged texture pyramid, or one of a newer version; get it anew",
                                      path);
        return RASTER::WarpedImagePyramid::create(pyramid, RASTER::ProjectionFile::read(path).wkt, wkt, path);
    }
};

const bool isInstalled = (NBX::ObjectLoader::install(new TexturePyramidReader()),
                          RASTER::GeoFile::install(std::make_unique<const TexturePyramidGeoFile>()), true);

} // namespace

} // namespace ZMT::UTIL
