#include <zmt/raster/geofileformat.h>

#include <nbx/data/file.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::RASTER {

NBX::SO<TiledGeoImagePyramid> GeoFileFormat::openImage(const std::string & path, const std::string &) const {
    const bool isImage = kindOf(path) == GeoFileKind::Image;
    throw NBX::InputException(L"is " + NBX::StringUtils::Utf8String2WString(name()) +
                                  (isImage ? L", which is only drawn; choose the image that it was built from"
                                           : L", which has no image; choose an image"),
                              path);
}

std::string GeoFileFormat::firstBytes(const std::string & path, std::size_t count) {
    // Opening a pipe would wait for its other end.
    if (!NBX::File::isFile(path)) return {};
    std::string bytes(count, '\0');
    try {
        const NBX::SO<NBX::File> file(new NBX::File(path));
        bytes.resize(file->read(bytes.data(), count));
    } catch (const NBX::Exception &) {
        return {};
    }
    return bytes;
}

GeoFileKind StreamedFileFormat::kindOf(const std::string & path) const {
    return firstBytes(path, magic_.size()) == magic_ ? kind_ : GeoFileKind::Unknown;
}

} // namespace ZMT::RASTER
