// Reading and writing by position, with calls that go on after an interruption and after a part; then the
// file system; then the parts of names, which are pure text. Opening does not wait for the writer of a pipe,
// which is then refused.

#include <nbx/data/file.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/object/exception.h>

#include "lasterror.h"

namespace NBX {

NBX_CLASS_IMPL(File, SharedObj)

namespace {

namespace fs = std::filesystem;

/// The most that one system call is asked to move.
constexpr std::uint64_t s_largestTransfer = std::uint64_t(1) << 30;

int openFlags(WriteMode mode) {
    switch (mode) {
    case WM_ReadOnly:
        // A pipe without a writer would keep the call waiting.
        return O_RDONLY | O_NONBLOCK;
    case WM_Update:
        return O_RDWR;
    case WM_Create:
        return O_RDWR | O_CREAT | O_TRUNC;
    case WM_Append:
        return O_RDWR | O_CREAT;
    }
    return O_RDONLY;
}

std::size_t fileNameStart(const std::string & path) {
    return path.find_last_of('/') + 1;
}

/// Where the dot of the extension stands, or the end of the path.
std::size_t extensionStart(const std::string & path) {
    const std::size_t name = fileNameStart(path);
    const std::size_t dot = path.find_last_of('.');
    return dot == std::string::npos || dot <= name || path.compare(name, std::string::npos, "..") == 0
               ? path.size()
               : dot;
}

bool isPipe(int handle) {
    struct stat status {};
    return ::fstat(handle, &status) == 0 && S_ISFIFO(status.st_mode);
}

/// Steps over one UTF-8 character.
std::size_t characterBehind(const std::string & text, std::size_t at) {
    do
        ++at;
    while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80);
    return at;
}

/// '*' takes as little as the rest of the pattern allows; only the last one ever has to be tried again.
bool matchesPattern(const std::string & name, const std::string & pattern) {
    std::size_t n = 0, p = 0;
    std::size_t star = std::string::npos, behindStar = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            behindStar = n;
        } else if (p < pattern.size() && pattern[p] == '?') {
            n = characterBehind(name, n);
            ++p;
        } else if (p < pattern.size() && pattern[p] == name[n]) {
            ++n, ++p;
        } else if (star != std::string::npos) {
            p = star + 1;
            n = ++behindStar;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string::npos;
}

} // namespace

File::File(const std::string & path, WriteMode mode)
    : fullName_(absolutePath(path)), mode_(mode),
      handle_(::open(path.c_str(), openFlags(mode) | O_CLOEXEC, 0666)) {
    if (handle_ < 0)
        throwLastError(mode == WM_ReadOnly ? L"cannot read the file, check its access rights"
                                           : L"cannot write the file, check its folder and access rights",
                       path);
    if (isDir(path)) {
        ::close(handle_);
        throw IOException(L"cannot read a folder as a file", path);
    }
    if (isPipe(handle_)) {
        ::close(handle_);
        throw IOException(L"cannot read a pipe as a file", path);
    }
    if (mode == WM_Append) position_ = size();
}

File::File(const std::string & fullName, int handle)
    : fullName_(fullName), mode_(WM_Create), handle_(handle) {}

SO<File> File::createUnnamed(const std::string & path) {
    const std::string folder = pathName(absolutePath(path));
    const int handle = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    return handle < 0 ? nullptr : new File(absolutePath(path), handle);
}

std::string File::nameInProcess() const {
    const std::string link = "/proc/self/fd/" + std::to_string(handle_);
    return ::access(link.c_str(), F_OK) == 0 ? link : fullName_;
}

bool File::giveName(const std::string & path) {
    if (::linkat(AT_FDCWD, nameInProcess().c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0)
        return false;
    fullName_ = absolutePath(path);
    return true;
}

File::~File() {
    if (handle_ >= 0) ::close(handle_);
}

std::uint64_t File::read(void * data, std::uint64_t bytes) {
    std::uint64_t done = 0;
    while (done < bytes) {
        const ssize_t count =
            ::pread(handle_, static_cast<char *>(data) + done, std::min(bytes - done, s_largestTransfer),
                    static_cast<off_t>(position_));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throwLastError(L"cannot read the file", fullName_);
        if (count == 0) break;
        done += static_cast<std::uint64_t>(count);
        position_ += static_cast<std::uint64_t>(count);
    }
    return done;
}

void File::write(const void * data, std::uint64_t bytes) {
    if (isReadOnly()) throw IOException(L"the file was opened for reading only", fullName_);
    std::uint64_t done = 0;
    while (done < bytes) {
        const ssize_t count =
            ::pwrite(handle_, static_cast<const char *>(data) + done,
                     std::min(bytes - done, s_largestTransfer), static_cast<off_t>(position_));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) throwLastError(L"cannot write the file, check the room on its disk", fullName_);
        done += static_cast<std::uint64_t>(count);
        position_ += static_cast<std::uint64_t>(count);
    }
}

std::uint64_t File::seek(std::int64_t offset, SeekMode mode) {
    const std::uint64_t origin = mode == SM_Begin ? 0 : mode == SM_Current ? position_ : size();
    const auto start = static_cast<std::int64_t>(origin);
    const bool fits =
        offset < 0 ? start + offset >= 0 : start <= std::numeric_limits<std::int64_t>::max() - offset;
    if (!fits) throw IOException(L"cannot move to a place outside the file", fullName_);
    return position_ = static_cast<std::uint64_t>(start + offset);
}

std::uint64_t File::size() const {
    struct stat status {};
    if (::fstat(handle_, &status) != 0) throwLastError(L"cannot tell the size of the file", fullName_);
    return static_cast<std::uint64_t>(status.st_size);
}

void File::resize(std::uint64_t size) {
    if (isReadOnly()) throw IOException(L"the file was opened for reading only", fullName_);
    if (::ftruncate(handle_, static_cast<off_t>(size)) != 0)
        throwLastError(L"cannot set the size of the file", fullName_);
}

void File::synchronize() {
    if (::fsync(handle_) != 0) throwLastError(L"cannot bring the file to its disk", fullName_);
}

void File::checkReadable(const std::string & path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found)
        throw FileNotFoundException(L"no such file; check the name", path);
    if (fs::is_directory(status)) throw InputException(L"is a directory; name a file in it", path);
    if (fs::exists(status) && ::eaccess(path.c_str(), R_OK) != 0)
        throw InputException(L"cannot be read; check its access rights", path);
    if (fs::is_regular_file(status) && fs::file_size(path, error) == 0 && !error)
        throw InputException(L"the file is empty; get it anew", path);
}

bool File::exists(const std::string & path) {
    std::error_code error;
    return fs::exists(path, error);
}

bool File::isFile(const std::string & path) {
    std::error_code error;
    return fs::is_regular_file(path, error);
}

bool File::isDir(const std::string & path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

bool File::isRelative(const std::string & path) {
    return path.empty() || path.front() != '/';
}

bool File::remove(const std::string & path) {
    std::error_code error;
    return fs::remove(path, error);
}

void File::copy(const std::string & source, const std::string & target) {
    File from(source);
    AtomicFileWriter to(target);
    std::vector<char> block(1 << 20);
    while (const std::uint64_t count = from.read(block.data(), block.size()))
        to.write(block.data(), count);
    to.commit();
}

std::vector<std::uint8_t> File::contents(const std::string & path, std::uint64_t limit) {
    File file(path);
    const std::uint64_t size = file.size();
    if (size > limit) throw IOException(L"the file is too large", path);
    std::vector<std::uint8_t> result(size);
    result.resize(file.read(result.data(), size));
    return result;
}

std::string File::fileName(const std::string & path) {
    return path.substr(fileNameStart(path));
}

std::string File::baseName(const std::string & path) {
    const std::size_t name = fileNameStart(path);
    return path.substr(name, extensionStart(path) - name);
}

std::string File::pathName(const std::string & path) {
    return path.substr(0, fileNameStart(path));
}

std::string File::extensionName(const std::string & path) {
    const std::size_t dot = extensionStart(path);
    return dot < path.size() ? path.substr(dot + 1) : "";
}

std::string File::replaceExtensionName(const std::string & path, const std::string & extension) {
    const std::string stem = path.substr(0, extensionStart(path));
    return extension.empty() ? stem : stem + "." + extension;
}

std::string File::absolutePath(const std::string & path, const std::string & base) {
    std::string full = path;
    if (isRelative(path)) full = (base.empty() ? currentWorkingDir() : absolutePath(base)) + "/" + path;
    return fs::path(full).lexically_normal().string();
}

std::string File::currentWorkingDir(int) {
    std::error_code error;
    const std::string folder = fs::current_path(error).string();
    if (error) throw IOException(L"the current working directory no longer exists");
    return folder.back() == '/' ? folder : folder + "/";
}

std::string File::temporaryFileName(const std::string & prefix) {
    std::error_code error;
    const fs::path folder = fs::temp_directory_path(error);
    if (error) throw IOException(L"no folder for temporary files, set TMPDIR to one that exists");
    std::string name = (folder / (prefix + "XXXXXX")).string();
    const int file = ::mkostemp(name.data(), O_CLOEXEC);
    if (file < 0) throwLastError(L"cannot make a temporary file, check TMPDIR", name);
    ::close(file);
    return name;
}

std::vector<std::string> File::matchingEntries(const std::string & folder, const std::string & pattern,
                                               bool files, bool folders) {
    std::vector<std::string> result;
    std::error_code error;
    fs::directory_iterator entry(folder.empty() ? "." : folder, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        std::error_code ignored;
        const bool isWanted = entry->is_directory(ignored) ? folders : files;
        if (isWanted && matchesPattern(name, pattern)) result.push_back(name);
    }
    std::sort(result.begin(), result.end());
    return result;
}

} // namespace NBX
