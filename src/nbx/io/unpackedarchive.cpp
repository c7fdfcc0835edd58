// The archive's table says what each entry is called and how large it becomes, and neither is believed: names
// are judged part by part, and bytes are counted as they come out, in all and for each entry, against limits
// that follow from the size of the archive.

#include "unpackedarchive.h"

#include "plaintext.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <set>

#include <zip.h>

#include <nbx/data/file.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>

namespace NBX {

NBX_CLASS_IMPL(UnpackedArchive, SharedObj)

namespace {

/// Deflate makes at most this many bytes of one.
constexpr std::uint64_t s_mostInflation = 1032;

struct CloseArchive {
    void operator()(zip_t * archive) const { zip_discard(archive); }
};
struct CloseEntry {
    void operator()(zip_file_t * entry) const { zip_fclose(entry); }
};

/// Whether a name leads to a file below the folder in which it is looked for.
bool isSafe(const std::string & name) {
    if (name.empty() || name.size() > 1000 || name.front() == '/' || name.back() == '/') return false;
    if (name.find_first_of(std::string("\\:\0", 3)) != std::string::npos) return false;
    std::string part;
    for (const char c : name + "/") {
        if (c != '/') {
            part += c;
            continue;
        }
        if (part.empty() || part == "." || part == "..") return false;
        part.clear();
    }
    return true;
}

/// Whether a file system may hold all parts of a name.
bool hasLongPart(const std::string & name) {
    constexpr std::size_t longest = 255;
    std::size_t length = 0;
    for (const char c : name) {
        length = c == '/' ? 0 : length + 1;
        if (length > longest) return true;
    }
    return false;
}

std::string newFolder() {
    // A file with this name has the name for itself; a folder takes its place.
    const std::string path = File::temporaryFileName("zmt-archive-");
    File::remove(path);
    std::error_code error;
    if (!std::filesystem::create_directory(path, error)) throw IOException(L"cannot be made", path);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all, error);
    return path + "/";
}

} // namespace

class UnpackedArchive::Reading {
public:
    Reading(UnpackedArchive & target, const std::string & path)
        : target_(target), path_(path), progress_("unpacking " + File::fileName(path)) {
        int error = 0;
        archive_.reset(zip_open(path.c_str(), ZIP_RDONLY, &error));
        if (!archive_) throw InputException(L"is no ZIP archive, or a damaged one; get it anew", path);
        most_ = std::min(maxBytes, s_mostInflation * File(path).size());
    }

    void unpack() {
        const zip_int64_t entries = zip_get_num_entries(archive_.get(), 0);
        if (entries > std::int64_t{maxEntries})
            throw InputException(L"holds more than " + std::to_wstring(maxEntries) + L" files", path_);
        for (zip_int64_t i = 0; i < entries; ++i) {
            const char * stored =
                zip_get_name(archive_.get(), static_cast<zip_uint64_t>(i), ZIP_FL_ENC_GUESS);
            const std::string name = stored ? stored : "";
            if (!name.empty() && name.back() == '/') continue;
            unpack(static_cast<zip_uint64_t>(i), name);
            if (!progress_.update(double(i + 1) / double(entries))) throw InputException(L"cancelled", path_);
        }
        progress_.finish();
    }

private:
    void unpack(zip_uint64_t index, const std::string & name) {
        if (!isSafe(name)) return leaveOut(name, "its name leads elsewhere");
        if (hasLongPart(name)) return leaveOut(name, "its name is too long");
        if (!known_.insert(name).second) return leaveOut(name, "there is another of that name");
        const std::unique_ptr<zip_file_t, CloseEntry> entry(zip_fopen_index(archive_.get(), index, 0));
        if (!entry) return leaveOut(name, "it cannot be read, or only with a password");
        const std::string path = target_.folder_ + name;
        std::error_code error;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
        if (error || std::filesystem::exists(path, error))
            return leaveOut(name, "its name is that of a folder");
        if (copy(*entry, path)) {
            target_.names_.push_back(name);
        } else {
            File::remove(path);
            leaveOut(name, "it is damaged");
        }
    }

    bool copy(zip_file_t & entry, const std::string & path) {
        const SO<File> file(new File(path, WM_Create));
        std::array<char, 1 << 16> part;
        std::uint64_t bytes = 0;
        for (;;) {
            const zip_int64_t count = zip_fread(&entry, part.data(), part.size());
            if (count <= 0) return count == 0;
            bytes += static_cast<std::uint64_t>(count);
            total_ += static_cast<std::uint64_t>(count);
            if (bytes > maxEntryBytes || total_ > most_)
                throw InputException(L"holds more bytes than may be unpacked; divide it into several", path_);
            file->write(part.data(), static_cast<std::uint64_t>(count));
        }
    }

    void leaveOut(const std::string & name, const char * reason) {
        target_.leftOut_.push_back(plainText("file " + name + " is left out: " + reason));
    }

    UnpackedArchive & target_;
    std::string path_;
    Progress progress_;
    std::unique_ptr<zip_t, CloseArchive> archive_;
    std::uint64_t most_ = 0, total_ = 0;
    std::set<std::string> known_;
};

UnpackedArchive::UnpackedArchive(const std::string & path) : folder_(newFolder()) {
    try {
        Reading(*this, path).unpack();
    } catch (...) {
        std::error_code error;
        std::filesystem::remove_all(folder_, error);
        throw;
    }
}

UnpackedArchive::~UnpackedArchive() {
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
}

} // namespace NBX
