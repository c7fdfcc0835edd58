#pragma once

#include <nbx/data/dataresource.h>

namespace NBX {

/// A range of another resource, which it keeps alive; the bytes are shared.
class DataSubResource : public DataResource {
    NBX_CLASS(DataSubResource, DataResource)
public:
    /// A range that reaches beyond the end of `resource` is reported and cut; a null resource is reported
    /// and gives an empty range. Writable only when `resource` is as well.
    DataSubResource(DataResource * resource, unsigned offset, unsigned size, bool writable);

    using DataResource::pointer;
    void * pointer() const override;
    unsigned size() const override { return size_; }
    bool isWritable() const override { return writable_; }

private:
    SO<DataResource> resource_;
    unsigned offset_;
    unsigned size_;
    bool writable_;
};

} // namespace NBX
