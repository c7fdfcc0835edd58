#include <nbx/data/memorydataresource.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include <sys/mman.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(MemoryDataResource, DataResource)

void MemoryDataResource::Free::operator()(void * block) const {
    std::free(block);
}

namespace {

/// Asks for large pages, of which the system has fewer to find, to clear and to remember. A wish alone.
void wishLargePages(void * block, std::size_t size) {
    constexpr std::uintptr_t page = std::uintptr_t{2} << 20;
    const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t begin = (first + page - 1) / page * page, end = (first + size) / page * page;
    if (begin < end) ::madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE);
}

} // namespace

/// Zeroed by the system, which for large blocks costs nothing until they are touched.
MemoryDataResource::Block MemoryDataResource::allocate(unsigned size) {
    if (size == 0) return nullptr;
    Block block(std::calloc(size, 1));
    if (!block) throw std::bad_alloc();
    wishLargePages(block.get(), size);
    return block;
}

MemoryDataResource::MemoryDataResource(unsigned size, bool writable)
    : bytes_(allocate(size)), size_(size), writable_(writable) {}

MemoryDataResource::MemoryDataResource(const void * data, unsigned size, bool writable)
    : MemoryDataResource(size, writable) {
    if (size > 0) std::memcpy(bytes_.get(), data, size);
}

MemoryDataResource::~MemoryDataResource() = default;

void MemoryDataResource::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<DataResource>(m, this);
    unsigned size = size_;
    m.attribute("size", size);
    m.attribute("writable", writable_);
    if (m.isReading()) {
        if (size > m.bytesLeft()) throw IOError(L"stored data block is larger than its file");
        bytes_ = allocate(size);
        size_ = size;
    }
    if (!m.rawAttribute("bytes", bytes_.get(), size_) && m.isReading())
        throw IOError(L"stored data block has no bytes");
}

} // namespace NBX
