#include <nbx/data/dataresource.h>

#include <algorithm>
#include <cstring>

#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(DataResource, SharedObj)

void * DataResource::pointer(unsigned offset) const {
    NBX_CHECK(offset <= size(), L"offset " << offset << L" lies behind the end at " << size());
    void * start = pointer();
    return start && offset <= size() ? static_cast<char *>(start) + offset : nullptr;
}

unsigned DataResource::read(unsigned offset, void * target, unsigned bytes) const {
    if (offset >= size()) return 0;
    const unsigned count = std::min(bytes, size() - offset);
    if (count > 0) std::memcpy(target, pointer(offset), count);
    return count;
}

} // namespace NBX
