#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace NBX {

/// Strong pointer to a `SharedObj`; it may be null. Assigning counts the new object before it releases
/// the old one. Different `SO`s to one object may be used by different threads.
template <class T> class SO {
public:
    using element_type = T;

    SO() = default;
    SO(std::nullptr_t) {}
    SO(T * object) : object_(object) { ref(); }
    SO(const SO & other) : object_(other.object_) { ref(); }
    SO(SO && other) noexcept : SO() { swap(other); }
    template <class U>
    requires std::is_convertible_v<U *, T *> SO(const SO<U> & other) : object_(other.get()) { ref(); }
    ~SO() { unref(); }

    SO & operator=(const SO & other) {
        SO(other).swap(*this);
        return *this;
    }
    SO & operator=(SO && other) noexcept {
        SO(std::move(other)).swap(*this);
        return *this;
    }

    T * get() const { return object_; }
    T * operator->() const { return object_; }
    T & operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }

    template <class U> bool operator==(const SO<U> & other) const { return object_ == other.get(); }
    bool operator==(const T * other) const { return object_ == other; }
    bool operator==(std::nullptr_t) const { return object_ == nullptr; }
    bool operator<(const SO & other) const { return std::less<T *>()(object_, other.object_); }

    void swap(SO & other) noexcept {
        // Each object then stands under the other one's address: only what is never swapped is exact.
        std::swap(object_, other.object_);
    }

private:
    void ref() {
        if (object_) object_->ref(this);
    }
    void unref() {
        if (object_) object_->unref(this);
    }

    T * object_ = nullptr;
};

/// The object as a `T`, or null if it is none.
template <class T, class U> SO<T> soCast(const SO<U> & object) {
    return SO<T>(dynamic_cast<T *>(object.get()));
}

} // namespace NBX

template <class T> struct std::hash<NBX::SO<T>> {
    std::size_t operator()(const NBX::SO<T> & object) const { return std::hash<T *>()(object.get()); }
};
