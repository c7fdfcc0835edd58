#include "reaches.h"

#include <unordered_set>
#include <vector>

#include <nbx/object/visitable.h>

namespace NBX {

bool reaches(const Visitable * from, const Visitable * target, bool (*holdsOthers)(const Visitable *)) {
    std::unordered_set<const Visitable *> seen;
    std::vector<Visitable *> waiting{const_cast<Visitable *>(from)};
    while (!waiting.empty()) {
        const Visitable * current = waiting.back();
        waiting.pop_back();
        if (current == target) return true;
        // Terrains are shapes with hundreds of thousands of objects below them.
        if (!current || !holdsOthers(current)) continue;
        const std::size_t others = waiting.size();
        current->acceptChildren(waiting);
        // Only what has children can close a circle; most objects have none.
        const bool isLeaf = waiting.size() == others;
        if (!isLeaf && !seen.insert(current).second) waiting.resize(others);
    }
    return false;
}

} // namespace NBX
