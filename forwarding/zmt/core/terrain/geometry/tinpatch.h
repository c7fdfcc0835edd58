#include "zmt/core/terrain/geometry/tree/tinpatch.h"
