#include "zmt/core/terrain/geometry/draped/terraintexturedtriangles.h"
