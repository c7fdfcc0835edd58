#include <zmt/raster/geofileformat.h>

#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::RASTER {

NBX::SO<TiledGeoImagePyramid> GeoFileFormat::openImage(const std::string & path, const std::string &) const {
    throw NBX::InputException(L"is " + NBX::StringUtils::Utf8String2WString(name()) +
                                  L", which has no image; choose an image",
                              path);
}

} // namespace ZMT::RASTER
