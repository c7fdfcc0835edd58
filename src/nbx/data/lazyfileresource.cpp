#include "lazyfileresource.h"

#include <algorithm>

#include <nbx/data/memorydataresource.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

namespace NBX {

namespace {

SO<File> openRegularFile(const std::string & path) {
    if (!File::exists(path)) throw FileNotFoundException(L"file not found", path);
    // What is no regular file is not even opened, which could wait for somebody at the other end.
    if (!File::isFile(path)) throw IOException(L"is no regular file", path);
    return new File(path);
}

} // namespace

LazyFileResource::LazyFileResource(const std::string & path) : path_(path), file_(openRegularFile(path)) {
    size_ = static_cast<unsigned>(std::min<std::uint64_t>(file_->size(), UINT32_MAX));
    setObjectName(StringUtils::Utf8String2WString(path));
}

void * LazyFileResource::pointer() const {
    const std::lock_guard lock(mutex_);
    if (!content_) {
        const SO<DataResource> content(new MemoryDataResource(size_));
        file_->seek(0);
        if (file_->read(content->pointer(), size_) != size_)
            throw IOException(L"the file became shorter", path_);
        content_ = content;
        file_ = nullptr;
    }
    return content_->pointer();
}

unsigned LazyFileResource::read(unsigned offset, void * target, unsigned bytes) const {
    const std::lock_guard lock(mutex_);
    if (content_) return content_->read(offset, target, bytes);
    if (offset >= size_) return 0;
    file_->seek(offset);
    return static_cast<unsigned>(file_->read(target, std::min(bytes, size_ - offset)));
}

} // namespace NBX
