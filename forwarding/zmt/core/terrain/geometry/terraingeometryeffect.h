#include "zmt/core/terrain/frame/terraingeometryeffect.h"
