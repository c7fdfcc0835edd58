// Any bytes as the file of a texture pyramid: no crash, no hang, no memory beyond what the bytes justify.

#include <cstddef>
#include <cstdint>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include <nbx/image/image.h>
#include <nbx/object/errorhandler.h>
#include <zmt/raster/geoimage.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramid.h>
#include <zmt/util/compressedtexture/texturepyramidtiledgeoimage.h>

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    NBX::ErrorHandler::setHandler([](const NBX::ErrorReport &) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t * data, std::size_t size) {
    static const int file = ::memfd_create("pyramid", MFD_CLOEXEC);
    if (::ftruncate(file, 0) != 0 || ::pwrite(file, data, size, 0) != static_cast<ssize_t>(size)) return 0;
    const auto pyramid = ZMT::UTIL::CompressedTexture::load(L"/proc/self/fd/" + std::to_wstring(file));
    if (!pyramid) return 0;
    for (unsigned i = 0; i < pyramid->overviews(); ++i)
        pyramid->overview(i)->getImage(-1, -1, 300, 300);
    const auto image =
        pyramid->getGeoImage(pyramid->minX(), pyramid->minY(), pyramid->maxX(), pyramid->maxY(), 64, 64);
    if (image && (image->width() > 64 || image->height() > 64)) __builtin_trap();
    return 0;
}
