#include <nbx/analysis/foundobject.h>

namespace NBX {

NBX_CLASS_IMPL(FoundObject, SharedObj)

FoundObject::FoundObject(SO<RenderObj> object, SO<const AttributeContext> context,
                         const Matrix4x4Base<double> & matrix)
    : object_(object), context_(context), matrix_(matrix) {}

FoundObject::~FoundObject() = default;

} // namespace NBX
