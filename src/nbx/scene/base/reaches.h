#pragma once

namespace NBX {

class Visitable;

/// Whether `target` is `from` or hangs anywhere below it. What `holdsOthers` denies is not looked into.
bool reaches(const Visitable * from, const Visitable * target, bool (*holdsOthers)(const Visitable *));

/// The same where objects of the class `Node` alone hold others of it.
template <class Node> bool reaches(const Visitable * from, const Visitable * target) {
    return reaches(from, target,
                   [](const Visitable * object) { return dynamic_cast<const Node *>(object) != nullptr; });
}

} // namespace NBX
