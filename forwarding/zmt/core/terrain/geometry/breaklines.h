#include "zmt/core/terrain/geometry/hybrid/breaklines.h"
