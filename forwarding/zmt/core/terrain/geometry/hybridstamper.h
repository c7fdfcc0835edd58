#include "zmt/core/terrain/geometry/hybrid/hybridstamper.h"
