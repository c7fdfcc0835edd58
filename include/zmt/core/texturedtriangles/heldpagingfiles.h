#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nbx/data/atomicfilewriter.h>

namespace ZMT::CORE {

/// While one lives, the paging files of trees that are built are complete without getting their names: they
/// get all of them together at the end, or never, so that nothing is left of a build that is given up. Of one
/// whose process is killed something is left where the file system has no files without a name (hidden files
/// that end in .tmp), and when that happens while the files get their names. At most one at a time, on the
/// thread that builds.
class HeldPagingFiles {
public:
    HeldPagingFiles();
    /// Files without a name are gone.
    ~HeldPagingFiles();
    HeldPagingFiles(const HeldPagingFiles &) = delete;
    HeldPagingFiles & operator=(const HeldPagingFiles &) = delete;

    /// Names each file as `nameOf` its name in the build, in the same folder. False, and no file has a name,
    /// where one of these names is taken, also by another process at the same time. Throws `IOException`;
    /// then none has one either.
    [[nodiscard]] bool name(const std::function<std::string(const std::string &)> & nameOf);

    /// Texels of the finest atlases of a file, and how many of them patches take.
    struct Fill {
        double used = 0.0, all = 0.0;
    };
    /// Of the file of that name in the build; nothing of a file that is not there. Stays after `name`.
    Fill fill(const std::string & path) const;

    /// The one that lives; null for none.
    static HeldPagingFiles * current();
    /// Keeps a file that is complete, of the name `path`.
    void take(std::unique_ptr<NBX::AtomicFileWriter> file, const std::string & path, const Fill & fill);

private:
    struct Held {
        std::unique_ptr<NBX::AtomicFileWriter> file;
        std::string path;
    };
    std::vector<Held> files_;
    std::map<std::string, Fill> fills_;
};

} // namespace ZMT::CORE
