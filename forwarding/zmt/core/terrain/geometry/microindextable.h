#include "zmt/core/terrain/geometry/hybrid/microindextable.h"
