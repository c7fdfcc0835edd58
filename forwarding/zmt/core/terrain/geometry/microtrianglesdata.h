#include "zmt/core/terrain/geometry/hybrid/microtrianglesdata.h"
