#pragma once

#include <atomic>

#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {

/// What `WO<T>` keeps of the object; enters itself into the object's list of weak pointers.
class WOBase {
public:
    WOBase() = default;
    WOBase(const WOBase & other);
    WOBase & operator=(const WOBase & other);
    ~WOBase();

protected:
    explicit WOBase(const SharedObj * object);
    /// The object, counted once for the caller, or null when it has died.
    const SharedObj * lockedObject() const;
    bool isNull() const;

private:
    friend class SharedObj;
    class Watched;
    void leave();

    /// Changed under the lock of the object; the links are read under it as well.
    std::atomic<const SharedObj *> object_{nullptr};
    WOBase * previous_ = nullptr;
    WOBase * next_ = nullptr;
};

/// Weak pointer to a `SharedObj`: it watches without holding, and turns null when the object dies.
/// One `WO` belongs to one thread; the object may die on any.
template <class T> class WO : public WOBase {
public:
    WO() = default;
    WO(std::nullptr_t) {}
    WO(T * object) : WOBase(object) {}
    template <class U>
    requires std::is_convertible_v<U *, T *> WO(const SO<U> & object) : WO(static_cast<T *>(object.get())) {}

    /// The object as a strong pointer; null when it has died.
    SO<T> lock() const {
        const SharedObj * object = lockedObject();
        if (!object) return nullptr;
        SO<T> result(static_cast<T *>(const_cast<SharedObj *>(object)));
        object->unref(this);
        return result;
    }

    explicit operator bool() const { return !isNull(); }
};

} // namespace NBX
