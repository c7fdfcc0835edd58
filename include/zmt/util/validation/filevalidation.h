#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <zmt/core/misc/asyncfile.h>

namespace ZMT::UTIL {

/// What `FileValidation` finds out about a file.
struct ValidationReport {
    enum Format { F_Unknown, F_StreamingTerrain, F_StreamingTexture, F_TexturePyramid, F_City };

    struct Fault {
        std::uint64_t offset; ///< in the file; of a deflated block, where it begins
        std::string what;
        std::string file = {}; ///< path or URL of one that belongs to the file; empty for that itself
    };
    /// Faults beyond these are only counted.
    static constexpr std::size_t mostFaults = 100;

    Format format = F_Unknown;
    /// As they were found, from the root on.
    std::vector<Fault> faults;
    std::uint64_t faultCount = 0;
    std::uint64_t fileBytes = 0;
    std::uint64_t tiles = 0; ///< that were read and are what they stand for; of a city the blocks of textures
    std::uint64_t lightTiles = 0; ///< the same of the light map of a terrain
    std::uint64_t levels = 0;     ///< of the tree or the pyramid
    /// The user cancelled: what is above is not all.
    bool isCancelled = false;

    bool isSound() const { return faultCount == 0 && !isCancelled; }
    /// As it is told to people, without an article: "streaming terrain".
    static const char * formatName(Format format);

    void add(std::uint64_t offset, std::string what, const std::string & file = {});
};

/// Checks whether a streaming terrain, a streaming texture or a texture pyramid is all that its format says:
/// every reference, size and place, what tiles say of each other, and that every byte belongs to one of them.
///
/// The file is read block by block, each once, so that it may be larger than memory: what is kept are the
/// tiles on the way to the root, and which stretches of the file have been seen.
class FileValidation {
public:
    /// The content tells the format. `key` is that with which a texture or a pyramid was written. What cannot
    /// be read is a fault, and after some such the check ends. Uses the file on the calling thread, to which
    /// it belongs.
    static ValidationReport run(CORE::AsyncFile & file, std::uint64_t key = 0);
};

} // namespace ZMT::UTIL
