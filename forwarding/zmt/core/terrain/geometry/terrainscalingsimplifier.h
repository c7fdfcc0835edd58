#include "zmt/core/terrain/frame/terrainscalingsimplifier.h"
