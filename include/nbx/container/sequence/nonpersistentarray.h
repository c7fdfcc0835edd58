#pragma once

#include <utility>
#include <vector>

#include <nbx/container/sequence/iterator.h>
#include <nbx/object/stringutils.h>

namespace NBX {

/// Growable sequence in contiguous memory; cannot be stored.
template <ArrayElement T> class NonPersistentArray : public Iterator<T> {
    using Base = Iterator<T>;
    NBX_TEMPLATE_CLASS(NonPersistentArray, Base)
public:
    NonPersistentArray() = default;
    explicit NonPersistentArray(unsigned size, const T & value = T()) : values_(size, value) {}
    explicit NonPersistentArray(std::vector<T> values) : values_(std::move(values)) {}

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
    void append(const T & value) { values_.push_back(value); }
    void remove(unsigned i) {
        NBX_CHECK(i < size(), L"i out of range");
        if (i < size()) values_.erase(values_.begin() + i);
    }
    void clear() { values_.clear(); }
    void resize(unsigned size) { values_.resize(size); }
    void reserve(unsigned size) { values_.reserve(size); }

    /// The elements themselves.
    std::vector<T> & stl() { return values_; }
    const std::vector<T> & stl() const { return values_; }

    void serialize(SerializationManager &) override {
        const std::wstring name = StringUtils::Utf8String2WString(this->classInfoNBX()->name().text());
        NBX_NOT_IMPLEMENTED(name << L"::serialize() not supported: use Array<T> for serialization instead!");
    }

protected:
    std::vector<T> values_;
};

} // namespace NBX
