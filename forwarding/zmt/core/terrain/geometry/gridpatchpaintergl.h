#include "zmt/core/terrain/geometry/regular/gridpatchpaintergl.h"
