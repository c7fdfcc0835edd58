#include <zmt/util/compressedtexture/texturepyramidreader.h>

#include <nbx/data/objectloader.h>
#include <nbx/object/errorhandler.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramid.h>

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

static const bool isInstalled = (NBX::ObjectLoader::install(new TexturePyramidReader()), true);

} // namespace ZMT::UTIL
