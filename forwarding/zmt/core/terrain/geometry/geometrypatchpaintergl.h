#include "zmt/core/terrain/geometry/base/geometrypatchpaintergl.h"
