#pragma once

#include <unordered_map>

#include <nbx/engine/resourcemanager.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// The process's budget of graphics memory for what can be made again. Sizes are in bytes. Canvases bracket
/// their pictures as frames.
///
/// What a picture needs beyond the budget is dropped at its end. So that the next one need not make it again,
/// what was `use`d lives until a picture does without it; a picture that needs more than the budget is told
/// by one report for each `setBudget`, under "needed <= getBudget()".
class GraphicsMemoryManager : public ResourceManager<SharedObj, unsigned> {
public:
    static constexpr unsigned defaultBudget = 256U << 20U;

    static GraphicsMemoryManager * instance();

    void setBudget(unsigned budget);

    /// Notes that `resource`, of `size` bytes, is drawn; adds it when it is not known.
    void use(SharedObj * resource, unsigned size);

    /// Drops the resource, though it was used in the last picture; during one that is postponed to its end.
    /// False when it was not known.
    bool remove(const SharedObj * resource);

    /// Whether a bracket is open, in which nothing that is added goes.
    bool isInFrame() const { return depth_ > 0; }
    void beginFrame();
    void endFrame();

private:
    struct Used {
        SO<SharedObj> resource;
        unsigned size;
    };
    using UsedResources = std::unordered_map<const SharedObj *, Used>;

    GraphicsMemoryManager() : ResourceManager(defaultBudget) {}
    void checkBudget();

    UsedResources inThisFrame_, inLastFrame_;
    unsigned depth_ = 0;      ///< of the brackets
    bool isReported_ = false; ///< that the present budget is too small
};

} // namespace NBX
