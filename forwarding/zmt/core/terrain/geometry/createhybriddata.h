#include "zmt/core/terrain/geometry/hybrid/createhybriddata.h"
