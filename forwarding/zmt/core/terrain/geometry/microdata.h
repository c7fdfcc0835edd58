#include "zmt/core/terrain/geometry/hybrid/microdata.h"
