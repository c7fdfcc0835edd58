#include <nbx/engine/graphicsmemorymanager.h>

namespace NBX {

GraphicsMemoryManager * GraphicsMemoryManager::instance() {
    // Never deleted: what it holds may not be released any more once the process ends.
    static auto * manager = new GraphicsMemoryManager();
    return manager;
}

} // namespace NBX
