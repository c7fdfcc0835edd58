#include <zmt/core/terrain/geometry/grid/filetiledgeoimage.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

#include <nbx/image/image.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

namespace ZMT::CORE::GRID {

NBX_CLASS_IMPL(FileTiledGeoImage, RASTER::TiledGeoImage)

namespace {

/// Positions in files have a sign.
constexpr auto s_largestFile = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

/// Whether `a * b <= limit`.
bool productFits(std::uint64_t a, std::uint64_t b, std::uint64_t limit) {
    return b == 0 || a <= limit / b;
}

/// The part of `size` pixels from `low` on that lies in an image of `pixels`.
void clip(std::int64_t low, std::uint64_t size, std::uint64_t pixels, std::int64_t & first,
          std::uint64_t & count) {
    const auto end = std::min<std::int64_t>(low + static_cast<std::int64_t>(size),
                                            static_cast<std::int64_t>(std::min(pixels, s_largestFile)));
    first = std::max<std::int64_t>(low, 0);
    count = end > first ? static_cast<std::uint64_t>(end - first) : 0;
}

} // namespace

FileTiledGeoImage::FileTiledGeoImage(NBX::SO<NBX::File> file, double minX, double minY, double pixelSizeX,
                                     double pixelSizeY, std::uint64_t pixelsX, std::uint64_t pixelsY,
                                     unsigned bands)
    : file_(file), minX_(minX), minY_(minY), pixelSizeX_(pixelSizeX), pixelSizeY_(pixelSizeY),
      pixelsX_(pixelsX), pixelsY_(pixelsY), bands_(bands), bytesPerPixel_(bands == 1 ? 1 : 4) {
    NBX_CHECK(file, L"no file");
    NBX_CHECK(bands >= 1, L"an image without bands");
    if (file) reserve();
    if (file && !failed_) return;
    pixelsX_ = pixelsY_ = 0;
}

/// Lays the image behind what the file has.
void FileTiledGeoImage::reserve() {
    try {
        baseOffset_ = file_->seek(0, NBX::SM_End);
        const std::uint64_t room = s_largestFile - baseOffset_;
        if (!productFits(pixelsX_, pixelsY_, room / bytesPerPixel_))
            fail(L"an image has more pixels than a file can hold; make it smaller", "");
        else
            file_->resize(baseOffset_ + pixelsX_ * pixelsY_ * bytesPerPixel_);
    } catch (const NBX::IOException & exception) {
        fail(L"there is no room for an image; free space on the disk", exception.what());
    }
}

void FileTiledGeoImage::fail(const wchar_t * what, const std::string & reason) const {
    failed_ = true;
    NBX_FAILURE(what << L": "
                     << NBX::StringUtils::Utf8String2WString(reason.empty() ? file_->fullName() : reason));
}

NBX::SO<NBX::Image> FileTiledGeoImage::getImage(int x, int y, unsigned width, unsigned height) const {
    const NBX::SO<NBX::Image> image = createEmptyImage(width, height);
    if (!image) return nullptr;
    RASTER::PixelRect part;
    clip(x, width, pixelsX_, part.x, part.width);
    clip(y, height, pixelsY_, part.y, part.height);
    if (part.isEmpty()) return image;
    try {
        if (readRows(part, x, y, *image)) return image;
        fail(L"an image's file was cut; make it anew", "");
    } catch (const NBX::IOException & exception) {
        fail(L"an image's file cannot be read; make it anew", exception.what());
    }
    return nullptr;
}

/// `part` lies in this image, whose pixel (`x`, `y`) is the first of `image`. False at the end of the file.
bool FileTiledGeoImage::readRows(const RASTER::PixelRect & part, int x, int y, NBX::Image & image) const {
    const std::uint64_t bytes = part.width * bytesPerPixel_;
    for (std::uint64_t i = 0; i < part.height; ++i) {
        const auto row = static_cast<std::uint64_t>(part.y) + i;
        auto * line = image.pixelComponentsU8(static_cast<int>(part.x - x),
                                              static_cast<int>(static_cast<std::int64_t>(row) - y));
        file_->seek(static_cast<std::int64_t>(position(static_cast<std::uint64_t>(part.x), row)));
        if (file_->read(line, bytes) != bytes) return false;
    }
    return true;
}

void FileTiledGeoImage::setValues(std::uint64_t x, std::uint64_t y,
                                  const std::vector<unsigned char> & bytes) {
    if (bytes.empty()) return;
    const std::uint64_t all = pixelsX_ * pixelsY_ * bytesPerPixel_;
    NBX_CHECK(x < pixelsX_, L"range error: [0, " << pixelsX_ << L"), " << x);
    NBX_CHECK(y < pixelsY_, L"range error: [0, " << pixelsY_ << L"), " << y);
    if (x >= pixelsX_ || y >= pixelsY_) return;
    const bool fits = bytes.size() <= all - (position(x, y) - baseOffset_);
    NBX_CHECK(fits, L"a run of " << bytes.size() << L" bytes reaches beyond the image");
    if (!fits) return;
    try {
        file_->seek(static_cast<std::int64_t>(position(x, y)));
        file_->write(bytes.data(), bytes.size());
    } catch (const NBX::IOException & exception) {
        fail(L"pixels cannot be written; free space on the disk", exception.what());
    }
}

} // namespace ZMT::CORE::GRID
