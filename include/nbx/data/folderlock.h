#pragma once

#include <functional>
#include <string>

namespace NBX {

/// While it lives no other process has such a lock on the folder; it waits until that is so. Nothing is
/// written for it, and the end of the process ends it. Where the file system knows no locks there is none.
/// Another process that has it is told of by `onWait`, once, before the waiting.
class FolderLock {
public:
    explicit FolderLock(const std::string & folder, const std::function<void()> & onWait = {});
    ~FolderLock();
    FolderLock(const FolderLock &) = delete;
    FolderLock & operator=(const FolderLock &) = delete;

    bool isLocked() const { return isLocked_; }

private:
    /// Of `flags` of the system's `flock`; whether it has it then.
    bool lock(int flags);

    int handle_;
    bool isLocked_ = false;
};

} // namespace NBX
