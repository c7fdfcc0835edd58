#include "geometrydataindexiterator.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(GeometryData_IndexIterator, NBX::Iterator<unsigned>)

} // namespace ZMT::CORE
