#include "zmt/core/terrain/geometry/base/geometrypatch.h"
