#include "zmt/core/terrain/geometry/regular/gridpatchshadowpaintergl.h"
