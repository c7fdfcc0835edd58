#include "asyncfile_mem.h"

#include <algorithm>
#include <limits>

#include <nbx/data/datasubresource.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(AsyncFile_Mem, AsyncFile)
NBX_CLASS_IMPL(AsyncFile_Mem::Request_Mem, AsyncFile::Request)

namespace {

/// What lies beyond 32 bits lies beyond every block in memory as well.
unsigned limited(std::uint64_t value) {
    return static_cast<unsigned>(std::min<std::uint64_t>(value, std::numeric_limits<unsigned>::max()));
}

} // namespace

AsyncFile_Mem::AsyncFile_Mem(const NBX::SO<NBX::DataResource> & resource) : resource_(resource) {}

AsyncFile_Mem::~AsyncFile_Mem() = default;

std::uint64_t AsyncFile_Mem::size() const {
    return resource_ ? resource_->size() : 0;
}

NBX::SO<AsyncFile::Request> AsyncFile_Mem::request(std::uint64_t offset, std::uint64_t size,
                                                   double priority) {
    if (!isOpen()) return nullptr;
    return requests_.emplace_back(new Request_Mem(this, resource_.get(), offset, size, priority));
}

bool AsyncFile_Mem::remove(const NBX::SO<Request> & request) {
    const auto known = std::find(requests_.begin(), requests_.end(), request);
    if (known == requests_.end()) return false;
    requests_.erase(known);
    return true;
}

AsyncFile_Mem::Request_Mem::Request_Mem(AsyncFile_Mem * file, NBX::DataResource * resource,
                                        std::uint64_t offset, std::uint64_t size, double priority)
    : file_(file), offset_(offset), priority_(priority),
      data_(new NBX::DataSubResource(resource, limited(offset), limited(size), false)) {}

AsyncFile_Mem::Request_Mem::~Request_Mem() = default;

NBX::SO<AsyncFile> AsyncFile_Mem::Request_Mem::file() const {
    return file_.lock();
}

bool AsyncFile_Mem::Request_Mem::setPriority(double priority) {
    priority_ = priority;
    return true;
}

} // namespace ZMT::CORE
