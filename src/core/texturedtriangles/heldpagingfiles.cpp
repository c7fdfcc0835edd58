#include <zmt/core/texturedtriangles/heldpagingfiles.h>

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <nbx/data/file.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>

namespace ZMT::CORE {

namespace {

HeldPagingFiles * s_current = nullptr;

/// Names that are taken by empty files, which only one process can make. They go unless they are kept.
class TakenNames {
public:
    TakenNames() = default;
    ~TakenNames() {
        for (const std::string & name : names_)
            NBX::File::remove(name);
    }
    TakenNames(const TakenNames &) = delete;
    TakenNames & operator=(const TakenNames &) = delete;

    /// False where somebody else has the name.
    bool take(const std::string & name) {
        names_.reserve(names_.size() + 1);
        const int handle = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (handle < 0 && errno == EEXIST) return false;
        if (handle < 0)
            throw NBX::IOException(L"cannot make a file in this folder, choose another one", name, 0,
                                   NBX::ErrorHandler::getLastError());
        ::close(handle);
        names_.push_back(name);
        return true;
    }
    void keep() { names_.clear(); }

private:
    std::vector<std::string> names_;
};

} // namespace

HeldPagingFiles::HeldPagingFiles() {
    NBX_CHECK(!s_current, L"paging files are held already");
    s_current = this;
}

HeldPagingFiles::~HeldPagingFiles() {
    s_current = nullptr;
}

HeldPagingFiles * HeldPagingFiles::current() {
    return s_current;
}

void HeldPagingFiles::take(std::unique_ptr<NBX::AtomicFileWriter> file, const std::string & path,
                           const Fill & fill) {
    fills_[path] = fill;
    // A tree that is built again replaces its file.
    std::erase_if(files_, [&](const Held & held) { return held.path == path; });
    files_.push_back({std::move(file), path});
}

HeldPagingFiles::Fill HeldPagingFiles::fill(const std::string & path) const {
    const auto found = fills_.find(path);
    return found == fills_.end() ? Fill() : found->second;
}

bool HeldPagingFiles::name(const std::function<std::string(const std::string &)> & nameOf) {
    TakenNames names;
    for (const Held & held : files_)
        if (!names.take(nameOf(held.path))) return false;
    const std::vector<Held> files = std::move(files_);
    files_.clear();
    for (const Held & held : files) {
        held.file->retarget(nameOf(held.path));
        held.file->commit();
    }
    names.keep();
    return true;
}

} // namespace ZMT::CORE
