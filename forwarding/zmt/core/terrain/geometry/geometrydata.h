#include "zmt/core/terrain/geometry/base/geometrydata.h"
