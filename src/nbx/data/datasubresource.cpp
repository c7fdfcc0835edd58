#include <nbx/data/datasubresource.h>

#include <algorithm>

#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(DataSubResource, DataResource)

DataSubResource::DataSubResource(DataResource * resource, unsigned offset, unsigned size, bool writable)
    : resource_(resource), offset_(offset), size_(size),
      writable_(writable && resource && resource->isWritable()) {
    NBX_CHECK(resource, L"no resource");
    const unsigned available = resource ? resource->size() : 0;
    if (!resource) offset_ = size_ = 0;
    NBX_CHECK(offset_ <= available && size_ <= available - offset_,
              L"range of " << size << L" bytes at " << offset << L" reaches beyond the end at " << available);
    offset_ = std::min(offset_, available);
    size_ = std::min(size_, available - offset_);
}

void * DataSubResource::pointer() const {
    return size_ > 0 ? resource_->pointer(offset_) : nullptr;
}

} // namespace NBX
