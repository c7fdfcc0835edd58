#include "zmt/core/terrain/geometry/draped/terraintexturedgeometry.h"
