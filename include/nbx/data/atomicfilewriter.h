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
    /// The target is `goal(path)`. One that exists must be a regular file, and may not be write protected: by
    /// its access rights, which also the superuser is held to.
    explicit AtomicFileWriter(const std::string & path);
    /// Removes what was written when it was not committed.
    ~AtomicFileWriter();
    AtomicFileWriter(const AtomicFileWriter &) = delete;
    AtomicFileWriter & operator=(const AtomicFileWriter &) = delete;

    /// The file that is written under the name `path`, which need not exist: an absolute path without links.
    /// Symbolic links stay, and what they point to is written, also where nothing is there yet. Throws
    /// `IOException` for links that lead in a circle.
    static std::string goal(const std::string & path);

    /// The open file; only before `commit()`.
    File & file() { return *file_; }
    void write(const void * data, std::uint64_t bytes) { file_->write(data, bytes); }
    /// Another name in the same folder, before `commit()`.
    void retarget(const std::string & path);
    /// Closes the file and renames it. With `synchronized` its bytes are on the disk before.
    void commit(bool synchronized = false);

private:
    void nameAside();

    std::string target_;
    std::string aside_; ///< empty while the file aside has no name
    SO<File> file_;
};

} // namespace NBX
