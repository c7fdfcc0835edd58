#include "zmt/core/terrain/frame/terrainpainterglsettings.h"
