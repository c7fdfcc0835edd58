#include "zmt/core/terrain/geometry/tin/tinconstruction.h"
