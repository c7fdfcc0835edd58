#pragma once

#include <string>
#include <vector>

#include <nbx/object/sharedobj.h>

namespace NBX {

/// The files of a ZIP archive in a folder of their own, which goes with the object. What an entry claims is
/// not believed: bytes are counted while they come, and names that lead elsewhere are refused.
class UnpackedArchive : public SharedObj {
    NBX_CLASS(UnpackedArchive, SharedObj)
public:
    /// Of all entries together, and of one.
    static constexpr std::uint64_t maxBytes = std::uint64_t{4} << 30;
    static constexpr std::uint64_t maxEntryBytes = std::uint64_t{1} << 30;
    static constexpr unsigned maxEntries = 100000;

    /// Throws `InputException` where `path` is no archive or holds too much, `IOException` where its files
    /// cannot be written.
    explicit UnpackedArchive(const std::string & path);
    ~UnpackedArchive() override;

    /// With a '/' at its end.
    const std::string & folder() const { return folder_; }
    /// The names of the files, below the folder, in the archive's order.
    const std::vector<std::string> & names() const { return names_; }
    /// Entries that were left out, a line each.
    const std::vector<std::string> & leftOut() const { return leftOut_; }

private:
    class Reading;

    std::string folder_;
    std::vector<std::string> names_, leftOut_;
};

} // namespace NBX
