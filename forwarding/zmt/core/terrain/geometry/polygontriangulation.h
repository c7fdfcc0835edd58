#include "zmt/core/terrain/geometry/tin/polygontriangulation.h"
