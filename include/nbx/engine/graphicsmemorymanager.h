#pragma once

#include <nbx/engine/resourcemanager.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// The process's budget of graphics memory for what can be made again. Sizes are in bytes.
class GraphicsMemoryManager : public ResourceManager<SharedObj, unsigned> {
public:
    static constexpr unsigned defaultBudget = 256U << 20U;

    static GraphicsMemoryManager * instance();

private:
    GraphicsMemoryManager() : ResourceManager(defaultBudget) {}
};

} // namespace NBX
