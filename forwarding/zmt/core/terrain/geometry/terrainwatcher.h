#include "zmt/core/terrain/frame/terrainwatcher.h"
