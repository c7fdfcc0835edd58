#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {

enum WriteMode {
    WM_ReadOnly, ///< the file must exist
    WM_Update,   ///< read and write; the file must exist and keeps its bytes
    WM_Create,   ///< read and write; a file that exists loses its bytes
    WM_Append,   ///< read and write; made when missing, and the position starts at the end
};

enum SeekMode { SM_Begin, SM_Current, SM_End };

/// An open file, and the operations on files and their names. Paths are UTF-8 with '/' as separator.
/// What fails throws: `FileNotFoundException` for a file that does not exist, otherwise `IOException`,
/// both with the name of the file. One `File` belongs to one thread at a time.
class File : public SharedObj {
    NBX_CLASS(File, SharedObj)
public:
    /// Folders and pipes are no files: they throw, and a pipe keeps nobody waiting.
    explicit File(const std::string & path, WriteMode mode = WM_ReadOnly);
    ~File() override;
    File(const File &) = delete;
    File & operator=(const File &) = delete;

    /// The number of bytes read: fewer than `bytes` only at the end of the file.
    std::uint64_t read(void * data, std::uint64_t bytes);
    /// Writes all of them, or throws.
    void write(const void * data, std::uint64_t bytes);
    /// The new position counted from the start. It may lie behind the end, not before the start.
    std::uint64_t seek(std::int64_t offset, SeekMode mode = SM_Begin);
    std::uint64_t position() const { return position_; }
    std::uint64_t size() const;
    /// Cuts the file or fills it up with zeros; the position stays.
    void resize(std::uint64_t size);
    /// Gives the bytes to the disk.
    void synchronize();
    bool isReadOnly() const { return mode_ == WM_ReadOnly; }
    /// The absolute path.
    const std::string & fullName() const { return fullName_; }

    /// A new file, open for reading and writing, in the folder of `path` but without a name: it is gone when
    /// it is closed or the process ends in whatever way. Messages call it `path`. Null where the file system
    /// has no such files.
    static SO<File> createUnnamed(const std::string & path);
    /// Gives a file without a name one. False when it is taken, and where it cannot be done.
    bool giveName(const std::string & path);

    /// A name by which this process can open the same file once more while it is open, also one without a
    /// name: for libraries that take names alone.
    std::string nameInProcess() const;

    /// Throws where a file that could not be read has a plain reason: none is there, which is a
    /// `FileNotFoundException`, it is a folder, may not be read, or is empty (`InputException`).
    static void checkReadable(const std::string & path);
    static bool exists(const std::string & path);
    /// True for a regular file.
    static bool isFile(const std::string & path);
    static bool isDir(const std::string & path);
    static bool isRelative(const std::string & path);
    /// Removes a file or an empty folder; false when that failed or there was none.
    static bool remove(const std::string & path);
    /// Replaces `target` once the copy is complete.
    static void copy(const std::string & source, const std::string & target);
    /// All bytes; throws `IOException` when there are more than `limit`.
    static std::vector<std::uint8_t> contents(const std::string & path, std::uint64_t limit = UINT64_MAX);

    /// "a/b.c.txt" gives "b.c.txt".
    static std::string fileName(const std::string & path);
    /// "a/b.c.txt" gives "b.c".
    static std::string baseName(const std::string & path);
    /// "a/b.c.txt" gives "a/", and "b.txt" gives the empty string.
    static std::string pathName(const std::string & path);
    /// "a/b.c.txt" gives "txt". A name's leading dot begins no extension.
    static std::string extensionName(const std::string & path);
    /// ("a/b.txt", "x.y") gives "a/b.x.y". An empty extension takes the dot away as well.
    static std::string replaceExtensionName(const std::string & path, const std::string & extension);
    /// Without ".", ".." and double separators. A relative path counts from `base`, or from the current
    /// working directory when that is empty.
    static std::string absolutePath(const std::string & path, const std::string & base = "");
    /// With a '/' at its end. There are no drives: the number is not looked at.
    static std::string currentWorkingDir(int drive = -1);
    /// A new empty file in the folder for temporary files; the caller removes it. The name is `prefix`
    /// with some letters behind it.
    static std::string temporaryFileName(const std::string & prefix);

    /// The names, without folder and sorted, of the entries of `folder` that match `pattern`, in which
    /// '*' stands for any text and '?' for one character. Empty when there is no such folder.
    static std::vector<std::string> matchingEntries(const std::string & folder, const std::string & pattern,
                                                    bool files = true, bool folders = false);

private:
    File(const std::string & fullName, int handle);

    std::string fullName_;
    WriteMode mode_;
    int handle_ = -1;
    std::uint64_t position_ = 0;
};

} // namespace NBX
