#include "zmt/core/terrain/geometry/tree/mytintotristrips.h"
