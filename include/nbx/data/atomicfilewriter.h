#pragma once

#include <string>

#include <nbx/data/file.h>

namespace NBX {

/// Writes a file aside, in the folder of its target, and puts it in the target's place in one step: others
/// see the old bytes or the new ones, never a part. Without `commit()` the target stays as it was. Where the
/// file system can, the file aside has no name, so that nothing of it is left when the process is killed.
/// Throws `IOException`.
class AtomicFileWriter {
public:
    /// A target that exists must be a regular file; through a symbolic link its goal is replaced.
    explicit AtomicFileWriter(const std::string & path);
    /// Removes what was written when it was not committed.
    ~AtomicFileWriter();
    AtomicFileWriter(const AtomicFileWriter &) = delete;
    AtomicFileWriter & operator=(const AtomicFileWriter &) = delete;

    /// The open file; only before `commit()`.
    File & file() { return *file_; }
    void write(const void * data, std::uint64_t bytes) { file_->write(data, bytes); }
    /// Closes the file and renames it. With `synchronized` its bytes are on the disk before.
    void commit(bool synchronized = false);

private:
    void nameAside();

    std::string target_;
    std::string aside_; ///< empty while the file aside has no name
    SO<File> file_;
};

} // namespace NBX
