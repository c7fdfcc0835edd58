#include "zmt/core/terrain/geometry/tin/tin.h"
