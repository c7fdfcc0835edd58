#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

NBX_CLASS_IMPL(MonoAttribute, Attribute)

} // namespace NBX
