#include "zmt/core/terrain/geometry/view/builtterrain.h"
