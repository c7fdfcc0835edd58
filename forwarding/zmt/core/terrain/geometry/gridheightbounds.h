#include "zmt/core/terrain/geometry/regular/gridheightbounds.h"
