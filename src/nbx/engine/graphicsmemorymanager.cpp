#include <nbx/engine/graphicsmemorymanager.h>

#include <cstdint>

namespace NBX {

GraphicsMemoryManager * GraphicsMemoryManager::instance() {
    // Never deleted: what it holds may not be released any more once the process ends.
    static auto * manager = new GraphicsMemoryManager();
    return manager;
}

void GraphicsMemoryManager::setBudget(unsigned budget) {
    isReported_ = false;
    ResourceManager::setBudget(budget);
}

void GraphicsMemoryManager::use(SharedObj * resource, unsigned size) {
    const SO<SharedObj> held(resource);
    if (!touch(resource)) add(resource, size);
    if (depth_ > 0 && resource) inThisFrame_.insert_or_assign(resource, Used{held, size});
}

bool GraphicsMemoryManager::remove(const SharedObj * resource) {
    const auto lastUse = inLastFrame_.extract(resource), use = inThisFrame_.extract(resource);
    return ResourceManager::remove(resource);
}

void GraphicsMemoryManager::beginFrame() {
    ++depth_;
    ResourceManager::beginFrame();
}

void GraphicsMemoryManager::endFrame() {
    ResourceManager::endFrame();
    if (depth_ == 0 || --depth_ > 0) return;
    checkBudget();
    // Their destructors may come back here.
    UsedResources dropped;
    dropped.swap(inLastFrame_);
    inLastFrame_.swap(inThisFrame_);
}

void GraphicsMemoryManager::checkBudget() {
    std::uint64_t needed = 0;
    for (const auto & [resource, used] : inThisFrame_)
        needed += used.size;
    if (needed <= getBudget() || isReported_) return;
    isReported_ = true;
    NBX_REPORT(
        2, L"needed <= getBudget()",
        L"a picture needs " << (needed >> 10U) << L" KiB of graphics memory, more than the budget of "
                            << (getBudget() >> 10U)
                            << L" KiB; it is drawn all the same, raise the budget or allow larger errors");
}

} // namespace NBX
