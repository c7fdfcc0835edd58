#include "zmt/core/terrain/geometry/base/geometrydataindexiterator.h"
