#include <nbx/data/dataresource.h>

#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(DataResource, SharedObj)

void * DataResource::pointer(unsigned offset) const {
    NBX_CHECK(offset <= size(), L"offset " << offset << L" lies behind the end at " << size());
    void * start = pointer();
    return start && offset <= size() ? static_cast<char *>(start) + offset : nullptr;
}

} // namespace NBX
