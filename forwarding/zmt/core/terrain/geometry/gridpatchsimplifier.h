#include "zmt/core/terrain/geometry/regular/gridpatchsimplifier.h"
