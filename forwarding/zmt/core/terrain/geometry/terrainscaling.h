#include "zmt/core/terrain/frame/terrainscaling.h"
