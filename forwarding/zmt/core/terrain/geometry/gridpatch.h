#include "zmt/core/terrain/geometry/regular/gridpatch.h"
