#include "zmt/core/terrain/geometry/regular/gridpatchrayintersector.h"
