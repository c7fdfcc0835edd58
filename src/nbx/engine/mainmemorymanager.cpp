#include <nbx/engine/mainmemorymanager.h>

namespace NBX {

MainMemoryManager * MainMemoryManager::instance() {
    // Never deleted: what it holds may not be released any more once the process ends.
    static auto * manager = new MainMemoryManager();
    return manager;
}

} // namespace NBX
