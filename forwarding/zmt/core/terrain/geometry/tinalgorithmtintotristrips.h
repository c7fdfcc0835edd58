#include "zmt/core/terrain/geometry/tin/tinalgorithmtintotristrips.h"
