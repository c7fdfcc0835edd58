#include <zmt/raster/gdal/projectionfile.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <vector>

#include "gdalsupport.h"

#include <nbx/object/exception.h>

namespace ZMT::RASTER {

namespace {

using NBX::AtomicFileWriter;
using NBX::File;

/// No system takes more.
constexpr std::uint64_t s_largestFile = 1 << 20;

/// Formats that keep their system in the same place.
constexpr const char * s_sharing[] = {"shp", "asc", "flt", "bil", "bip", "bsq"};

bool isOfAnotherFile(const std::string & path) {
    return std::any_of(std::begin(s_sharing), std::end(s_sharing), [&](const char * suffix) {
        return File::exists(File::replaceExtensionName(path, suffix));
    });
}

bool saysTheSame(const std::string & path, const std::string & wkt) {
    try {
        return isSameSystem(spatialReference(ProjectionFile::read(path).wkt), spatialReference(wkt));
    } catch (const NBX::IOException &) {
        return false;
    }
}

void restore(const std::string & path, const std::optional<std::vector<std::uint8_t>> & bytes) {
    if (!bytes) {
        File::remove(path);
        return;
    }
    AtomicFileWriter writer(path);
    writer.write(bytes->data(), bytes->size());
    writer.commit();
}

} // namespace

std::string ProjectionFile::pathFor(const std::string & path) {
    return File::replaceExtensionName(AtomicFileWriter::goal(path), "prj");
}

GeoReference ProjectionFile::read(const std::string & path) {
    const std::string from = pathFor(path);
    if (!File::exists(from)) return {};
    const std::vector<std::uint8_t> bytes = File::contents(from, s_largestFile);
    return parse(std::string(bytes.begin(), bytes.end()), from);
}

GeoReference ProjectionFile::parse(const std::string & wkt, const std::string & name) {
    GdalErrorTrap trap;
    OGRSpatialReference system;
    if (system.importFromWkt(wkt.c_str()) != OGRERR_NONE)
        throw NBX::InputException(L"holds no coordinate system as WKT; correct it, or remove it where the "
                                  L"coordinates are those of the terrain",
                                  name);
    GeoReference reference = describe(&system);
    reference.isGeoreferenced = true;
    return reference;
}

ProjectionFile::ProjectionFile(const std::string & path, const std::string & wkt)
    : path_(pathFor(path)), hasSystem_(!wkt.empty()) {
    if (path_ == AtomicFileWriter::goal(path))
        throw NBX::IOException(L"files with this suffix hold coordinate systems, choose another name", path);
    if (File::exists(path_) ? hasSystem_ && saysTheSame(path, wkt) : !hasSystem_) return;
    if (File::exists(path_) && isOfAnotherFile(path_))
        throw NBX::IOException(L"gives another file of this name its coordinate system, choose another name",
                               path_);
    // Also what will be removed must be a file that may be replaced.
    writer_.emplace(path_);
    if (hasSystem_) writer_->write((wkt + "\n").data(), wkt.size() + 1);
}

void ProjectionFile::put() {
    if (hasSystem_)
        writer_->commit();
    else if (!File::remove(path_))
        throw NBX::IOException(L"cannot remove the coordinate system of the former file", path_);
}

void ProjectionFile::commitWith(const std::function<void()> & commit) {
    if (!writer_) return commit();
    std::optional<std::vector<std::uint8_t>> before;
    if (File::exists(path_)) before = File::contents(path_, s_largestFile);
    put();
    try {
        commit();
    } catch (...) {
        restore(path_, before);
        throw;
    }
}

} // namespace ZMT::RASTER
