#pragma once

#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {

/// A block of bytes that is shared. The bytes may be read from any thread while nobody writes them.
class DataResource : public SharedObj {
    NBX_CLASS(DataResource, SharedObj)
public:
    /// Start of the block; null when it is empty. Written to only where `isWritable()`.
    virtual void * pointer() const = 0;
    /// The byte `offset` behind the start, `offset <= size()`; null with a report when it lies outside.
    virtual void * pointer(unsigned offset) const;
    /// Number of bytes.
    virtual unsigned size() const = 0;
    virtual bool isWritable() const = 0;
    /// Copies up to `bytes` bytes from `offset` on to `target`, and gives their number, which is smaller only
    /// where the block ends. Of a block that lies elsewhere only these are fetched, while `pointer` wants
    /// all.
    virtual unsigned read(unsigned offset, void * target, unsigned bytes) const;
};

} // namespace NBX
