#include <nbx/data/atomicfilewriter.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>

namespace NBX {

namespace {

namespace fs = std::filesystem;

/// As many symbolic links as the system follows.
constexpr int s_mostLinks = 40;

/// The superuser could replace every file, so that the access rights themselves are looked at.
bool isWriteProtected(const std::string & path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return false;
    return (status.st_mode & 0222) == 0 || ::access(path.c_str(), W_OK) != 0;
}

std::string newNameAside(const std::string & target) {
    static std::atomic<unsigned> counter{0};
    return File::pathName(target) + "." + File::fileName(target) + "." + std::to_string(::getpid()) + "." +
           std::to_string(++counter) + ".tmp";
}

/// Names the target instead of the file aside when that cannot be made.
SO<File> createAside(const std::string & aside, const std::string & target) {
    try {
        return new File(aside, WM_Create);
    } catch (const IOException &) {
        const std::wstring reason = ErrorHandler::getLastError();
        throw IOException(L"cannot make a file in this folder, choose another one", target, 0, reason);
    }
}

/// A file without a name can be given one only where the system shows the process its own files.
bool canBeNamed() {
    static const bool result = ::access("/proc/self/fd", X_OK) == 0;
    return result;
}

/// A file that is replaced hands its access rights on.
void takeAccessRights(const std::string & from, const std::string & to) {
    struct stat status {};
    if (::stat(from.c_str(), &status) == 0) (void)!::chmod(to.c_str(), status.st_mode & 07777);
}

/// Makes a rename in the folder lasting.
void synchronizeFolder(const std::string & folder) {
    const int handle = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle < 0) return;
    ::fsync(handle);
    ::close(handle);
}

} // namespace

std::string AtomicFileWriter::goal(const std::string & path) {
    std::error_code error;
    if (fs::exists(path, error)) {
        const fs::path file = fs::canonical(path, error);
        return error ? File::absolutePath(path) : file.string(); // a pipe of the process has no other name
    }
    fs::path place = path;
    for (int links = 0; links <= s_mostLinks; ++links) {
        // Only the system knows where ".." leads behind a link.
        const fs::path folder = fs::canonical(place.has_parent_path() ? place.parent_path() : ".", error);
        if (error) return File::absolutePath(place.string());
        place = folder / place.filename();
        if (!fs::is_symlink(fs::symlink_status(place, error))) return place.string();
        place = folder / fs::read_symlink(place, error);
    }
    throw IOException(L"the symbolic links lead in a circle, choose another name", path);
}

AtomicFileWriter::AtomicFileWriter(const std::string & path) : target_(goal(path)) {
    if (File::fileName(target_).empty()) throw IOException(L"cannot write a file without a name", path);
    if (File::exists(target_) && !File::isFile(target_))
        throw IOException(L"cannot replace what is no regular file, choose another name", path);
    if (!File::isDir(File::pathName(target_)))
        throw IOException(L"cannot write the file, make its folder first", path);
    if (isWriteProtected(target_))
        throw IOException(L"the file is write protected, choose another name or change its access rights",
                          path);
    if (canBeNamed()) file_ = File::createUnnamed(target_);
    if (file_) return;
    aside_ = newNameAside(target_);
    file_ = createAside(aside_, path);
}

void AtomicFileWriter::retarget(const std::string & path) {
    const std::string target = goal(path);
    if (File::pathName(target) != File::pathName(target_))
        throw IOException(L"cannot move what is written to another folder", path);
    target_ = target;
}

AtomicFileWriter::~AtomicFileWriter() {
    if (!file_) return;
    file_ = nullptr;
    if (!aside_.empty()) File::remove(aside_);
}

/// A name cannot be taken over from another file at once, but a file with a name can take its place.
void AtomicFileWriter::nameAside() {
    if (!aside_.empty()) return;
    std::string name = newNameAside(target_);
    if (!file_->giveName(name))
        throw IOException(L"cannot put the written file in its place", target_, 0,
                          ErrorHandler::getLastError());
    aside_ = name;
}

void AtomicFileWriter::commit(bool synchronized) {
    if (!file_) throw IOException(L"the file was committed before", target_);
    if (synchronized) file_->synchronize();
    const bool isNew = aside_.empty() && !File::exists(target_);
    if (!isNew || !file_->giveName(target_)) {
        nameAside();
        takeAccessRights(target_, aside_);
        if (std::rename(aside_.c_str(), target_.c_str()) != 0)
            throw IOException(L"cannot put the written file in its place", target_, 0,
                              ErrorHandler::getLastError());
    }
    file_ = nullptr;
    if (synchronized) synchronizeFolder(File::pathName(target_));
}

} // namespace NBX
