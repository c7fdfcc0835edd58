#include "zmt/core/terrain/geometry/hybrid/microtrianglesdataiterator.h"
