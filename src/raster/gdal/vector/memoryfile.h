#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace ZMT::RASTER {

/// A file in memory that GDAL writes and reads by its path, and that goes with the object.
class MemoryFile {
public:
    /// There is none of that path yet. `suffix` has no dot.
    explicit MemoryFile(const std::string & suffix);
    ~MemoryFile();
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile & operator=(const MemoryFile &) = delete;

    const std::string & path() const { return path_; }
    /// What was written; empty as long as nothing was. Borrowed until the file is changed.
    std::span<const std::uint8_t> bytes() const;

private:
    std::string path_;
};

} // namespace ZMT::RASTER
