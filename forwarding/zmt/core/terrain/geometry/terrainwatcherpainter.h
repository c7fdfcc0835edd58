#include "zmt/core/terrain/frame/terrainwatcherpainter.h"
