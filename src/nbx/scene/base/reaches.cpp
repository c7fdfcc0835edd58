#include "reaches.h"

#include <unordered_set>
#include <vector>

#include <nbx/object/visitable.h>

namespace NBX {

bool reaches(const Visitable * from, const Visitable * target) {
    std::unordered_set<const Visitable *> seen{from};
    std::vector<const Visitable *> waiting{from};
    std::vector<Visitable *> children;
    while (!waiting.empty()) {
        const Visitable * current = waiting.back();
        waiting.pop_back();
        if (current == target) return true;
        children.clear();
        current->acceptChildren(children);
        for (const Visitable * child : children)
            if (child && seen.insert(child).second) waiting.push_back(child);
    }
    return false;
}

} // namespace NBX
