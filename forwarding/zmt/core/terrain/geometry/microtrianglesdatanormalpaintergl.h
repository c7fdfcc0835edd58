#include "zmt/core/terrain/geometry/hybrid/microtrianglesdatanormalpaintergl.h"
