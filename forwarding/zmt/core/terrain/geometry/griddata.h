#include "zmt/core/terrain/geometry/regular/griddata.h"
