#pragma once

#include <cstdint>
#include <memory>

#include <nbx/data/dataresource.h>

namespace NBX {

/// A block of memory of its own, filled with zeros at first. Stored with its bytes.
class MemoryDataResource : public DataResource {
    NBX_STORED_CLASS(MemoryDataResource, DataResource)
public:
    explicit MemoryDataResource(unsigned size = 0, bool writable = true);
    /// A copy of `size` bytes from `data`.
    MemoryDataResource(const void * data, unsigned size, bool writable = true);
    ~MemoryDataResource() override;

    using DataResource::pointer;
    void * pointer() const override { return bytes_.get(); }
    unsigned size() const override { return size_; }
    bool isWritable() const override { return writable_; }
    /// Attributes "size", "writable" and the raw block "bytes".
    void serialize(SerializationManager & m) override;

private:
    struct Free {
        void operator()(void * block) const;
    };
    using Block = std::unique_ptr<void, Free>;
    static Block allocate(unsigned size);

    Block bytes_;
    unsigned size_;
    bool writable_;
};

} // namespace NBX
