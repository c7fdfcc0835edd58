#pragma once

#include <nbx/engine/resourcemanager.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// The process's budget of main memory for what can be loaded again. Sizes are in bytes.
class MainMemoryManager : public ResourceManager<SharedObj, unsigned> {
public:
    static constexpr unsigned defaultBudget = 512U << 20U;

    static MainMemoryManager * instance();

private:
    MainMemoryManager() : ResourceManager(defaultBudget) {}
};

} // namespace NBX
