#include "zmt/core/terrain/geometry/hybrid/microtrianglesdatasimplifier.h"
