#include "zmt/core/terrain/frame/geotransformation.h"
