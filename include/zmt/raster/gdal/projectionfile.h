#pragma once

#include <functional>
#include <optional>
#include <string>

#include <nbx/data/atomicfilewriter.h>
#include <zmt/raster/georeference.h>

namespace ZMT::RASTER {

/// The coordinate system of a file whose own format has no place for one: WKT, as text, in a file beside it
/// whose name has the suffix "prj" in the place of the file's. The system of `DIR/NAME.ztp` stands in
/// `DIR/NAME.prj`. Where `DIR/NAME.ztp` is a symbolic link, it stands beside the file that the link leads to.
///
/// An object writes such a file, together with the file that it belongs to.
class ProjectionFile {
public:
    static std::string pathFor(const std::string & path);

    /// The system of the file `path`; as it is made where there is no file beside it. Throws
    /// `NBX::InputException` for a file that cannot be read, or holds no WKT.
    static GeoReference read(const std::string & path);

    /// The system that `wkt`, the text of the file `name`, tells. Throws as above.
    static GeoReference parse(const std::string & wkt, const std::string & name);

    /// Prepares that `path` gets the system `wkt`; without one there will be no file beside it. A file that
    /// says the same already is not touched. Throws `NBX::IOException` where it cannot be written, where it
    /// belongs to another file, such as a shapefile, as well, and where `path` has the suffix itself.
    ProjectionFile(const std::string & path, const std::string & wkt);

    /// Puts the file in its place, or removes the one that is there, and calls `commit`, which does it for
    /// the file that it belongs to. Where that throws, all is as before, and so does this.
    void commitWith(const std::function<void()> & commit);

private:
    void put();

    std::string path_;
    bool hasSystem_;
    std::optional<NBX::AtomicFileWriter> writer_; ///< without one nothing is to be changed
};

} // namespace ZMT::RASTER
