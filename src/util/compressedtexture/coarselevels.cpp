// A key of what identifies the image comes first, then the files of the folder, then the levels: they are
// made of the first halving of the image, tile by tile, and each coarser one of the one before.

#include <zmt/util/compressedtexture/coarselevels.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nbx/data/file.h>
#include <nbx/image/image.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/stackedimagepyramid.h>
#include <zmt/raster/tiledgeoimage.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramid.h>

namespace ZMT::UTIL {

namespace {

namespace fs = std::filesystem;

using RASTER::ImageFilePyramid;
using RASTER::TiledGeoImage;
using RASTER::TiledGeoImagePyramid;

/// Of the levels and their making; another one where images would become other levels.
constexpr const char * s_version = "1";
constexpr const char * s_suffix = ".ztp";
constexpr std::size_t s_nameLetters = 32;

/// FNV-1a by Fowler, Noll and Vo, twice with different starts.
std::string hashOf(const std::string & text) {
    std::uint64_t hash[2] = {0xCBF29CE484222325U, 0x84222325CBF29CE4U};
    for (const char letter : text)
        for (std::uint64_t & part : hash)
            part = (part ^ static_cast<unsigned char>(letter)) * 0x100000001B3U;
    char digits[s_nameLetters + 1];
    std::snprintf(digits, sizeof digits, "%016" PRIx64 "%016" PRIx64, hash[0], hash[1]);
    return digits;
}

/// Empty where a part of the image is no file.
std::string identityOf(const ImageFilePyramid & image) {
    std::string text = s_version;
    const auto parts = RASTER::RasterFile::partsOf(image.path());
    for (const std::string & part : parts) {
        struct stat status {};
        if (::stat(part.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return "";
        char numbers[160];
        std::snprintf(numbers, sizeof numbers, ";%" PRIu64 ",%" PRIu64 ",%" PRId64 ",%" PRId64 ".%09ld",
                      std::uint64_t(status.st_dev), std::uint64_t(status.st_ino),
                      std::int64_t(status.st_size), std::int64_t(status.st_mtim.tv_sec),
                      long(status.st_mtim.tv_nsec));
        text += numbers;
    }
    if (parts.empty()) return "";
    return hashOf(text + ";" + image.colors());
}

/// The level that the others are made of.
NBX::SO<TiledGeoImage> firstLevel(const ImageFilePyramid & image) {
    return image.overview(image.storedOverviews());
}

/// Null for what is no pyramid of this image.
NBX::SO<TexturePyramid> load(const std::string & path, const ImageFilePyramid & image) {
    NBX::SO<TexturePyramid> levels = CompressedTexture::load(NBX::StringUtils::Utf8String2WString(path));
    if (!levels || levels->overviews() == 0) return nullptr;
    const NBX::SO<TiledGeoImage> found = levels->overview(0), wanted = firstLevel(image);
    const RASTER::GeoExtent a = found->extent(), b = wanted->extent();
    const auto isNear = [&](double one, double other) {
        return std::abs(one - other) < 1e-3 * std::min(wanted->pixelSizeX(), wanted->pixelSizeY());
    };
    const bool isSame = found->pixelsX() == wanted->pixelsX() && found->pixelsY() == wanted->pixelsY() &&
                        isNear(a.minX, b.minX) && isNear(a.minY, b.minY) && isNear(a.maxX, b.maxX) &&
                        isNear(a.maxY, b.maxY);
    return isSame ? levels : nullptr;
}

CompressedTexture::PixelFormat formatOf(const TiledGeoImage & level) {
    const NBX::SO<NBX::Image> pixel = level.createEmptyImage(1, 1);
    const int format = CompressedTexture::pixelFormatOf(*pixel);
    if (format < 0) throw NBX::IOException(L"numbers have no coarse levels");
    return static_cast<CompressedTexture::PixelFormat>(format);
}

/// Of all levels together, in whole tiles.
std::uint64_t expectedBytes(const TiledGeoImage & level) {
    const std::uint64_t pixels = (level.pixelsX() + 256) * (level.pixelsY() + 256);
    return pixels * level.bands() / 3 * 4;
}

void checkDisk(const std::string & folder, std::uint64_t bytes, const std::string & path) {
    std::error_code error;
    const fs::space_info space = fs::space(folder, error);
    // While they are made, the two finest ones lie aside.
    if (!error && space.available / 2 < bytes)
        throw NBX::IOException(L"there is no room for its coarse levels in " +
                                   NBX::StringUtils::Utf8String2WString(folder),
                               path);
}

/// A file that lasts as long as it is open.
struct NamelessFile {
    NamelessFile() = default;
    ~NamelessFile() { NBX::File::remove(path); }
    NamelessFile(const NamelessFile &) = delete;
    NamelessFile & operator=(const NamelessFile &) = delete;

    const std::string path = NBX::File::temporaryFileName("zmt_levels");
};

/// Shows that a file was used.
void touch(const std::string & path) {
    ::utimensat(AT_FDCWD, path.c_str(), nullptr, 0);
}

} // namespace

std::string CoarseLevels::userFolder() {
    const char * cache = std::getenv("XDG_CACHE_HOME");
    if (cache && *cache == '/') return std::string(cache) + "/zmt";
    const char * home = std::getenv("HOME");
    return home && *home == '/' ? std::string(home) + "/.cache/zmt" : "";
}

bool CoarseLevels::areNeeded(const ImageFilePyramid & image) {
    const unsigned stored = image.storedOverviews();
    if (stored == 0 || stored >= image.overviews()) return false;
    const NBX::SO<TiledGeoImage> coarsest = image.overview(stored - 1);
    return coarsest->pixelsX() * coarsest->pixelsY() > leastPixels;
}

CoarseLevels::CoarseLevels(std::string folder, std::uint64_t maxBytes)
    : folder_(std::move(folder)), maxBytes_(maxBytes) {}

bool CoarseLevels::isUsable() const {
    std::error_code error;
    if (folder_.empty()) return false;
    fs::create_directories(folder_, error);
    return ::access(folder_.c_str(), R_OK | W_OK | X_OK) == 0;
}

/// Removes what was not used for the longest time.
void CoarseLevels::makeRoom(std::uint64_t bytes) const {
    struct Entry {
        fs::file_time_type used;
        std::uint64_t size;
        fs::path path;
    };
    std::vector<Entry> entries;
    std::error_code error;
    std::uint64_t sum = bytes;
    for (const auto & file : fs::directory_iterator(folder_, error)) {
        const bool isOurs =
            file.path().extension() == s_suffix && file.path().stem().string().size() == s_nameLetters;
        if (!isOurs || !file.is_regular_file(error)) continue;
        entries.push_back({file.last_write_time(error), file.file_size(error), file.path()});
        sum += entries.back().size;
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry & a, const Entry & b) { return a.used < b.used; });
    for (const Entry & entry : entries) {
        if (sum <= maxBytes_) return;
        fs::remove(entry.path, error);
        sum -= entry.size;
    }
}

NBX::SO<TiledGeoImagePyramid> CoarseLevels::complete(const NBX::SO<ImageFilePyramid> & image) const {
    const auto stacked = [&](const NBX::SO<TexturePyramid> & levels) {
        return NBX::SO<TiledGeoImagePyramid>(
            new RASTER::StackedImagePyramid(image.get(), image->storedOverviews(), levels.get()));
    };
    const std::string name = isUsable() ? identityOf(*image) : "";
    const std::string kept = folder_ + "/" + name + s_suffix;
    if (const auto levels = name.empty() ? nullptr : load(kept, *image)) {
        touch(kept);
        return stacked(levels);
    }
    const NBX::SO<TiledGeoImage> first = firstLevel(*image);
    const std::uint64_t bytes = expectedBytes(*first);
    if (bytes > maxBytes_)
        throw NBX::IOException(L"its coarse levels are too large to be kept", image->path());
    std::optional<NamelessFile> nameless;
    if (name.empty())
        nameless.emplace();
    else
        makeRoom(bytes);
    const std::string & path = nameless ? nameless->path : kept;
    checkDisk(NBX::File::pathName(path), bytes, image->path());
    const bool isMade = CompressedTexture::create(first, NBX::StringUtils::Utf8String2WString(path),
                                                  formatOf(*first), CompressedTexture::C_None);
    const NBX::SO<TexturePyramid> levels = isMade ? load(path, *image) : nullptr;
    return levels ? stacked(levels) : nullptr;
}

} // namespace ZMT::UTIL
