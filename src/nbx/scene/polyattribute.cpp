#include <nbx/scene/polyattribute.h>

namespace NBX {

NBX_CLASS_IMPL(PolyAttribute, Attribute)

} // namespace NBX
