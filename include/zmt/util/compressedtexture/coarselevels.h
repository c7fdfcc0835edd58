#pragma once

#include <cstdint>
#include <string>

#include <nbx/object/so.h>
#include <zmt/raster/gdal/imagefilepyramid.h>

namespace ZMT::UTIL {

/// Makes the coarse levels of large images that store none, which otherwise would be averaged from the whole
/// image again and again. They are texture pyramids in a folder, each named by what identifies the image
/// file: its device and number, size and time of change, and those of the files that belong to it. Several
/// processes may use one folder.
class CoarseLevels {
public:
    /// Images whose coarsest stored level has no more pixels need none.
    static constexpr std::uint64_t leastPixels = std::uint64_t(8192) * 8192;
    static constexpr std::uint64_t defaultMaxBytes = std::uint64_t(8) << 30;

    /// The folder "zmt" for what can be made again, below `XDG_CACHE_HOME` or else ".cache" of the user;
    /// empty where the environment knows neither.
    static std::string userFolder();
    static bool areNeeded(const RASTER::ImageFilePyramid & image);

    /// Files stay in `folder`, which is made; those that were used last, of at most `maxBytes` in all. With
    /// an empty name, and where the folder cannot be written, they lie in the folder for temporary files,
    /// without a name, and go with the image.
    explicit CoarseLevels(std::string folder = userFolder(), std::uint64_t maxBytes = defaultMaxBytes);

    /// The levels that `image` stores, and below them coarse ones, from the folder or made now, which shows
    /// its progress. Null when cancelled and where the image cannot be read, which then says that it failed.
    /// Throws `NBX::IOException` where there is no room for the levels, or no more than `maxBytes` of it.
    NBX::SO<RASTER::TiledGeoImagePyramid> complete(const NBX::SO<RASTER::ImageFilePyramid> & image) const;

private:
    bool isUsable() const;
    void makeRoom(std::uint64_t bytes) const;

    std::string folder_;
    std::uint64_t maxBytes_;
};

} // namespace ZMT::UTIL
