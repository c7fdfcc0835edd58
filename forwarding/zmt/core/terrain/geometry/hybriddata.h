#include "zmt/core/terrain/geometry/hybrid/hybriddata.h"
