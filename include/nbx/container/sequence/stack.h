#pragma once

#include <vector>

#include <nbx/container/sequence/iterator.h>

namespace NBX {

/// Last in, first out. As a sequence it runs from the bottom, element 0, to the top.
template <ArrayElement T> class Stack : public Iterator<T> {
    using Base = Iterator<T>;
    NBX_TEMPLATE_CLASS(Stack, Base)
public:
    unsigned size() const override { return static_cast<unsigned>(values_.size()); }
    /// A default value for an index out of range, which is reported.
    T get(unsigned i) const override {
        NBX_CHECK(i < size(), L"i out of range");
        return i < size() ? values_[i] : T();
    }
    const T * pointer() const override { return values_.data(); }
    const SharedObj * container() const override { return this; }

    void push(const T & value) { values_.push_back(value); }
    /// Popping an empty stack is reported.
    void pop() {
        NBX_CHECK(!values_.empty(), L"stack is empty");
        if (!values_.empty()) values_.pop_back();
    }
    /// The element pushed last; a default value for an empty stack, which is reported.
    T top() const {
        NBX_CHECK(!values_.empty(), L"stack is empty");
        return values_.empty() ? T() : values_.back();
    }

private:
    std::vector<T> values_;
};

} // namespace NBX
