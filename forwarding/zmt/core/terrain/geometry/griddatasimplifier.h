#include "zmt/core/terrain/geometry/regular/griddatasimplifier.h"
