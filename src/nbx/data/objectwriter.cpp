#include <nbx/data/objectwriter.h>

#include "suffixlist.h"

namespace NBX {

NBX_CLASS_IMPL(ObjectWriter, SharedObj)

int ObjectWriter::priority() const {
    return 0;
}

bool ObjectWriter::hasSuffix(const std::string & suffix) const {
    return isInSuffixList(objectFileSuffix(), suffix);
}

} // namespace NBX
