#include "zmt/core/terrain/geometry/view/terrainpaintergl.h"
