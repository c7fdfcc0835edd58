#include <nbx/scene/attribute/polyattribute.h>

namespace NBX {

NBX_CLASS_IMPL(PolyAttribute, Attribute)

} // namespace NBX
