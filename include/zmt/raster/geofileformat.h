#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include <nbx/object/so.h>

namespace ZMT::RASTER {

class TiledGeoImagePyramid;

/// What a file is for.
enum class GeoFileKind {
    Unknown, ///< nothing that can be read
    Heights, ///< a raster of one band whose numbers mean themselves
    Image,
    Vectors, ///< lines and areas
};

/// A format of files that GDAL does not read, and that a library above this one does. It enters by
/// `GeoFile::install` when that library loads. Several threads may ask at once.
class GeoFileFormat {
public:
    virtual ~GeoFileFormat() = default;

    /// As it is told to people, with its article: "a texture pyramid".
    virtual std::string name() const = 0;
    /// `Unknown` for files of other formats and for those that cannot be read. The content decides, whatever
    /// the name; little of it is read.
    virtual GeoFileKind kindOf(const std::string & path) const = 0;
    /// Whether its files are read while they are looked at, block by block, by classes of their own: nothing
    /// opens them here.
    virtual bool isStreamed() const { return false; }
    /// The image in a file of this format, in the system `wkt`; in its own where that, or its own, is not
    /// known. Throws `NBX::InputException`; as it stands, since the format has no images.
    virtual NBX::SO<TiledGeoImagePyramid> openImage(const std::string & path, const std::string & wkt) const;

protected:
    /// The first bytes of a file; fewer than `count` where it has no more, or cannot be read.
    static std::string firstBytes(const std::string & path, std::size_t count);
};

/// A format whose files begin with some letters, and are read while they are looked at.
class StreamedFileFormat : public GeoFileFormat {
public:
    StreamedFileFormat(std::string name, std::string magic, GeoFileKind kind)
        : name_(std::move(name)), magic_(std::move(magic)), kind_(kind) {}

    std::string name() const override { return name_; }
    GeoFileKind kindOf(const std::string & path) const override;
    bool isStreamed() const override { return true; }

private:
    const std::string name_, magic_;
    const GeoFileKind kind_;
};

} // namespace ZMT::RASTER
