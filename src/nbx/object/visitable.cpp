#include <nbx/object/visitable.h>

namespace NBX {

VisitMode Visitable::visitChildren(VisitorBase & v) {
    const std::size_t first = v.children_.size();
    acceptChildren(v.children_);
    const std::size_t last = v.children_.size();
    if (first == last) return VM_Continue;

    VisitMode mode = VM_Continue;
    v.path_.push_back(this);
    for (std::size_t i = first; i < last && mode != VM_Stop; ++i)
        if (v.children_[i]) mode = v.children_[i]->accept(v);
    v.path_.pop_back();
    v.children_.resize(first);
    return mode == VM_Stop ? VM_Stop : VM_Continue;
}

} // namespace NBX
