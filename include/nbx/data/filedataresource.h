#pragma once

#include <string>

#include <nbx/data/dataresource.h>

namespace NBX {

/// A block of bytes that lies in a file and is mapped into memory, for blocks too large for it.
/// A mapped file must not be made shorter by others while the resource lives: the system ends a process
/// that touches the missing bytes. Data from unsure places is better read with `File`.
class FileDataResource : public DataResource {
    NBX_CLASS(FileDataResource, DataResource)
public:
    /// Writable: the file is made when missing, and gets exactly `size` bytes, all of them on the disk.
    /// Read only: the file must have at least `size` bytes; 0 takes all of it, up to the largest size.
    /// Throws `FileNotFoundException` or `IOException`; a file to be deleted with the resource is then gone.
    /// The object name is `path`.
    FileDataResource(const std::string & path, unsigned size, bool writable,
                     bool deletedWithResource = false);
    ~FileDataResource() override;
    FileDataResource(const FileDataResource &) = delete;
    FileDataResource & operator=(const FileDataResource &) = delete;

    using DataResource::pointer;
    void * pointer() const override { return data_; }
    unsigned size() const override { return size_; }
    bool isWritable() const override { return writable_; }
    const std::string & path() const { return path_; }

private:
    void map(int file);

    std::string path_;
    void * data_ = nullptr;
    unsigned size_;
    bool writable_;
    bool deletedWithResource_;
};

} // namespace NBX
