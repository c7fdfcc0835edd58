#include "zmt/core/terrain/geometry/view/terrain.h"
