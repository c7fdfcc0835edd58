#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include <nbx/data/dataresource.h>
#include <nbx/data/file.h>

namespace NBX {

/// The bytes of a file, which are read when they are asked for: a part of them by `read`, all of them, into
/// memory, by the first call of `pointer`. Others may make the file shorter meanwhile. Of a file that is
/// larger than a resource can be, these are the first bytes. May be used from any thread.
class LazyFileResource : public DataResource {
    NBX_TEMPLATE_CLASS(LazyFileResource, DataResource)
public:
    /// The object name becomes `path`. Throws `FileNotFoundException` or `IOException`, the latter also for
    /// what is no regular file.
    explicit LazyFileResource(const std::string & path);

    using DataResource::pointer;
    /// Throws `IOException` where the bytes cannot be read, or there are fewer than when it was made.
    void * pointer() const override;
    unsigned size() const override { return size_; }
    bool isWritable() const override { return false; }
    /// Throws `IOException` where the bytes cannot be read.
    unsigned read(unsigned offset, void * target, unsigned bytes) const override;

private:
    std::string path_;
    unsigned size_;
    mutable std::mutex mutex_;         ///< for what follows
    mutable SO<File> file_;            ///< null when all has been read
    mutable SO<DataResource> content_; ///< all bytes, or null
};

} // namespace NBX
