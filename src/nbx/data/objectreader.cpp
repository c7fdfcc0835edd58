#include <nbx/data/objectreader.h>

#include "suffixlist.h"

namespace NBX {

NBX_CLASS_IMPL(ObjectReader, SharedObj)

int ObjectReader::priority() const {
    return 0;
}

bool ObjectReader::readsFrom(const std::string &) const {
    return false;
}

bool ObjectReader::hasSuffix(const std::string & suffix) const {
    return isInSuffixList(objectFileSuffix(), suffix);
}

} // namespace NBX
