#pragma once

#include <utility>
#include <vector>

#include <nbx/container/sequence/iterator.h>
#include <nbx/object/stringutils.h>

namespace NBX {

/// Sequence of a size fixed at construction; cannot be stored.
template <ArrayElement T> class NonPersistentStaticArray : public Iterator<T> {
    using Base = Iterator<T>;
    NBX_TEMPLATE_CLASS(NonPersistentStaticArray, Base)
public:
    explicit NonPersistentStaticArray(unsigned size, const T & value = T()) : values_(size, value) {}
    explicit NonPersistentStaticArray(std::vector<T> values) : values_(std::move(values)) {}

    unsigned size() const override { return static_cast<unsigned>(values_.size()); }
    /// A default value for an index out of range, which is reported.
    T get(unsigned i) const override {
        NBX_CHECK(i < size(), L"i out of range");
        return i < size() ? values_[i] : T();
    }
    const T * pointer() const override { return values_.data(); }
    T * pointer() { return values_.data(); }
    const SharedObj * container() const override { return this; }

    void set(unsigned i, const T & value) {
        NBX_CHECK(i < size(), L"i out of range");
        if (i < size()) values_[i] = value;
    }

    void serialize(SerializationManager &) override {
        const std::wstring name = StringUtils::Utf8String2WString(this->classInfoNBX()->name().text());
        NBX_NOT_IMPLEMENTED(
            name << L"::serialize() not supported: use StaticArray<T> for serialization instead!");
    }

protected:
    std::vector<T> values_;
};

} // namespace NBX
