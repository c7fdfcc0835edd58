#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// A named value that painters further down can look up under its name; it is never stored.
template <class T> class ContextData : public MonoAttribute {
    NBX_TEMPLATE_CLASS(ContextData, MonoAttribute)
public:
    ContextData(const ID & name, const T & value) : MonoAttribute(true), name_(name), value_(value) {}

    const T & getValue() const { return value_; }
    void setValue(const T & value) {
        if (value_ == value) return;
        value_ = value;
        this->modified();
    }

    /// The name.
    ID category() const override { return name_; }

private:
    ID name_;
    T value_;
};

} // namespace NBX
