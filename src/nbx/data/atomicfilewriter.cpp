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

/// The goal of symbolic links, so that the link itself stays.
std::string resolved(const std::string & path) {
    std::error_code error;
    const fs::path goal = fs::canonical(path, error);
    return error ? File::absolutePath(path) : goal.string();
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

AtomicFileWriter::AtomicFileWriter(const std::string & path) : target_(resolved(path)) {
    if (File::fileName(target_).empty()) throw IOException(L"cannot write a file without a name", path);
    if (File::exists(target_) && !File::isFile(target_))
        throw IOException(L"cannot replace what is no regular file, choose another name", path);
    if (!File::isDir(File::pathName(target_)))
        throw IOException(L"cannot write the file, make its folder first", path);
    if (canBeNamed()) file_ = File::createUnnamed(target_);
    if (file_) return;
    aside_ = newNameAside(target_);
    file_ = createAside(aside_, path);
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
