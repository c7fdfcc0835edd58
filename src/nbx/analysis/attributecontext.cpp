#include <nbx/analysis/attributecontext.h>

#include <utility>

namespace NBX {

NBX_CLASS_IMPL(AttributeContext, SharedObj)

AttributeContext::AttributeContext(std::vector<SO<MonoAttribute>> monos, std::vector<SO<RenderObj>> others)
    : monos_(std::move(monos)), others_(std::move(others)) {}

AttributeContext::~AttributeContext() = default;

MonoAttribute * AttributeContext::mono(const ID & category) const {
    for (const SO<MonoAttribute> & attribute : monos_)
        if (attribute->category() == category) return attribute.get();
    return nullptr;
}

} // namespace NBX
