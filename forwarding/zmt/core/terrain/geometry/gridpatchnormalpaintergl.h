#include "zmt/core/terrain/geometry/regular/gridpatchnormalpaintergl.h"
