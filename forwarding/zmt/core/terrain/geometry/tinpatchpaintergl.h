#include "zmt/core/terrain/geometry/tree/tinpatchpaintergl.h"
