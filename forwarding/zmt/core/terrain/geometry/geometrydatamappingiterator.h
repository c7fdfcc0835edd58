#include "zmt/core/terrain/geometry/base/geometrydatamappingiterator.h"
