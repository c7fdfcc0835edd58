#include "zmt/core/terrain/geometry/hybrid/microtrianglesdatapaintergl.h"
