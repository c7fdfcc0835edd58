#include <nbx/data/folderlock.h>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace NBX {

FolderLock::FolderLock(const std::string & folder, const std::function<void()> & onWait)
    : handle_(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (handle_ < 0) return;
    isLocked_ = lock(LOCK_NB);
    if (isLocked_ || errno != EWOULDBLOCK) return;
    if (onWait) onWait();
    isLocked_ = lock(0);
}

bool FolderLock::lock(int flags) {
    int result = -1;
    do
        result = ::flock(handle_, LOCK_EX | flags);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

FolderLock::~FolderLock() {
    if (handle_ >= 0) ::close(handle_);
}

} // namespace NBX
