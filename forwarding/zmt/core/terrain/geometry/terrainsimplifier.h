#include "zmt/core/terrain/geometry/view/terrainsimplifier.h"
