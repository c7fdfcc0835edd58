#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nbx/data/file.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::UTIL {

class TexturePyramidTiledGeoImage;

/// The pyramid in a file that `CompressedTexture` wrote. The tiles that were used last, of all levels, stay
/// decoded in memory. One thread at a time reads pixels; extents and sizes may be asked for from any thread.
/// Stored attributes: "filename".
class TexturePyramid : public RASTER::TiledGeoImagePyramid {
    NBX_STORED_CLASS(TexturePyramid, RASTER::TiledGeoImagePyramid)
public:
    /// Of pixels that stay in memory.
    static constexpr std::uint64_t maxCacheBytes = 32ULL << 20;

    /// Throws `NBX::IOError` for a file that is none, and `NBX::FileNotFoundException` or `NBX::IOException`
    /// for one that cannot be opened.
    explicit TexturePyramid(const std::wstring & fileName);
    ~TexturePyramid() override;

    const std::wstring & fileName() const { return fileName_; }
    double minX() const override { return header_.minX; }
    double minY() const override { return header_.minY; }
    double maxX() const override { return header_.maxX; }
    double maxY() const override { return header_.maxY; }
    unsigned overviews() const override { return static_cast<unsigned>(levels_.size()); }
    NBX::SO<RASTER::TiledGeoImage> overview(unsigned index) const override;
    /// Level `index` with what the file says of it; null, and reported, where there is none.
    NBX::SO<TexturePyramidTiledGeoImage> level(unsigned index) const;

    /// A file that is missing when read is searched for under its name in the working directory, then asked
    /// for with `ExternalLinkSolver`; without an answer the pyramid has no levels. Throws `NBX::IOError` for
    /// a file that is none.
    void serialize(NBX::SerializationManager & m) override;

protected:
    TexturePyramid();

private:
    /// Of the file's header.
    struct Header {
        double minX = 0.0, minY = 0.0, maxX = 0.0, maxY = 0.0;
    };

    void open();
    bool readLevels();

    std::wstring fileName_;
    NBX::SO<NBX::File> file_;
    Header header_;
    std::vector<NBX::SO<TexturePyramidTiledGeoImage>> levels_;
};

} // namespace ZMT::UTIL
