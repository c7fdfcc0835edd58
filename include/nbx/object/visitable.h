#pragma once

#include <vector>

namespace NBX {

class Visitable;

/// What a visit asks of the walk that called it.
enum VisitMode {
    VM_Continue = 0,     ///< go on, children included
    VM_SkipChildren = 1, ///< go on behind this object, without its children
    VM_Stop = 2,         ///< end the walk
};

/// Base of all visitors. A visitor derives from one or more `Visitor<T>`.
class VisitorBase {
public:
    virtual ~VisitorBase() = default;

    /// True: an object of a class derived from a visited class is not visited as its parent class.
    virtual bool acceptsOnlyExactType() const { return false; }
    /// The answer for objects of no visited class.
    virtual VisitMode defaultMode() const { return VM_Continue; }

    /// The objects from the start of the walk down to the parent of the current one.
    const std::vector<Visitable *> & path() const { return path_; }

private:
    friend class Visitable;
    std::vector<Visitable *> path_;
    std::vector<Visitable *> children_;
};

/// Visits objects of class `T`, and of classes derived from it.
template <class T> class Visitor : public virtual VisitorBase {
public:
    /// `pre` is true before the children of `object` are walked, false behind them.
    virtual VisitMode visit(T * object, bool pre) = 0;
};

/// Root of the object model: what a visitor can walk.
class Visitable {
public:
    virtual ~Visitable() = default;

    /// Walks this object and what hangs below it; see `Visitor`.
    virtual VisitMode accept(VisitorBase & v) = 0;
    /// Appends the objects below this one; entries may be null.
    virtual void acceptChildren(std::vector<Visitable *> & children) const { (void)children; }

protected:
    VisitMode acceptHierarchyRecursionImpl(VisitorBase & v, bool) { return v.defaultMode(); }

    /// The children's part of a walk: `VM_Stop` if one of them stopped it, else `VM_Continue`.
    VisitMode visitChildren(VisitorBase & v);
};

} // namespace NBX
