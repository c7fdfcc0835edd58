#include <nbx/data/filedataresource.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

#include "lasterror.h"

namespace NBX {

NBX_CLASS_IMPL(FileDataResource, DataResource)

namespace {

/// Closes a file at the end of a scope.
struct Handle {
    int file;
    ~Handle() {
        if (file >= 0) ::close(file);
    }
};

/// Removes a file at the end of a scope, unless `path` was cleared.
struct Removal {
    const std::string * path;
    ~Removal() {
        if (path) ::unlink(path->c_str());
    }
};

std::uint64_t fileSize(int file, const std::string & path) {
    struct stat status {};
    if (::fstat(file, &status) != 0) throwLastError(L"cannot tell the size of the file", path);
    if (!S_ISREG(status.st_mode)) throw IOException(L"cannot map what is no regular file", path);
    return static_cast<std::uint64_t>(status.st_size);
}

/// All blocks are taken now, since a full disk found later would end the process.
void setFileSize(int file, unsigned size, const std::string & path) {
    if (::ftruncate(file, size) != 0) throwLastError(L"cannot set the size of the file", path);
    if (size == 0) return;
    const int error = ::posix_fallocate(file, 0, size);
    errno = error;
    if (error != 0) throwLastError(L"no room for the file, make some on its disk", path);
}

} // namespace

FileDataResource::FileDataResource(const std::string & path, unsigned size, bool writable,
                                   bool deletedWithResource)
    : path_(path), size_(size), writable_(writable), deletedWithResource_(deletedWithResource) {
    setObjectName(StringUtils::Utf8String2WString(path));
    // A pipe without a writer would keep the call waiting.
    const int flags = writable ? O_RDWR | O_CREAT : O_RDONLY | O_NONBLOCK;
    const Handle handle{::open(path.c_str(), flags | O_CLOEXEC, 0666)};
    if (handle.file < 0) throwLastError(L"cannot open the file", path);
    Removal onFailure{deletedWithResource ? &path_ : nullptr};

    const std::uint64_t present = fileSize(handle.file, path);
    if (writable)
        setFileSize(handle.file, size, path);
    else if (size == 0)
        size_ = static_cast<unsigned>(std::min<std::uint64_t>(present, UINT32_MAX));
    else if (present < size)
        throw IOException(L"the file is too short", path);
    map(handle.file);
    onFailure.path = nullptr;
}

FileDataResource::~FileDataResource() {
    if (data_) ::munmap(data_, size_);
    if (deletedWithResource_) ::unlink(path_.c_str());
}

void FileDataResource::map(int file) {
    if (size_ == 0) return;
    void * data = ::mmap(nullptr, size_, writable_ ? PROT_READ | PROT_WRITE : PROT_READ,
                         writable_ ? MAP_SHARED : MAP_PRIVATE, file, 0);
    if (data == MAP_FAILED) throwLastError(L"cannot map the file", path_);
    data_ = data;
}

} // namespace NBX
