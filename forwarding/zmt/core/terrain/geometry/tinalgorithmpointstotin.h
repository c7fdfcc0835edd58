#include "zmt/core/terrain/geometry/tin/tinalgorithmpointstotin.h"
