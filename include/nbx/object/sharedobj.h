#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include <nbx/object/classpattern.h>
#include <nbx/object/visitable.h>

namespace NBX {

class SerializationManager;
class WOBase;

/// Base of everything that is shared. Objects are made with `new` and held by `SO<T>` at once; the last
/// `SO<T>` deletes. Counting and weak pointers are safe from any thread, everything else is the
/// subclass's contract.
class SharedObj : public Visitable {
public:
    SharedObj();
    /// A copy starts its own life: the counter, weak pointers and transaction number are not taken over.
    SharedObj(const SharedObj & other);
    SharedObj & operator=(const SharedObj & other);

    ~SharedObj() override;
    VisitMode accept(VisitorBase & v) override;
    void acceptChildren(std::vector<Visitable *> & children) const override;
    virtual bool isEqual(const SharedObj * other) const;
    virtual const ClassInfo * classInfoNBX() const;
    /// Notes a change: gives the object a new transaction number.
    virtual void modified();
    /// Number of the last change; grows over all objects of the process.
    virtual std::uint64_t lastTransactionNo() const;
    /// Reads or writes the stored attributes; see `SerializationManager`.
    virtual void serialize(SerializationManager & m);
    virtual bool isRegisteredForSerialization() const;

    static const ClassInfo * ClassInfoNBX();
    static const ID & ClassNameNBX();
    bool acceptedImpl(VisitorBase & v, bool pre, VisitMode & mode);

    const std::wstring & getObjectName() const;
    void setObjectName(const std::wstring & name);

    /// Shared objects have identity, not value: true for the same object only.
    bool operator==(const SharedObj & other) const { return this == &other; }

    /// `holder` is the address of the pointer that holds the object; it identifies who holds what in a
    /// debugger.
    void ref(const void * holder) const;
    void unref(const void * holder) const;
    /// Number of `SO`s that hold this object.
    int references() const { return references_.load(std::memory_order_relaxed); }

    /// Used by `WO`: enters or removes a weak pointer that turns null when the object dies.
    void registerWO(WOBase * pointer) const;
    void unregisterWO(WOBase * pointer) const;

protected:
    VisitMode acceptHierarchyRecursionImpl(VisitorBase & v, bool pre);

private:
    friend class WOBase;
    void link(WOBase * pointer) const;
    void unlink(WOBase * pointer) const;
    void clearWeakPointers() const;

    mutable WOBase * weakPointers_ = nullptr;
    std::atomic<std::uint64_t> transactionNo_{0};
    /// Null without a name, since a large scene has millions of objects and few names.
    std::unique_ptr<std::wstring> objectName_;
    // The small ones come last, so that subclasses fill the rest of the word.
    mutable std::atomic<int> references_{0};
    mutable std::atomic<bool> everWeak_{false};
};

} // namespace NBX
