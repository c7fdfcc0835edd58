#include "zmt/core/terrain/frame/terrainpainterframemanager.h"
