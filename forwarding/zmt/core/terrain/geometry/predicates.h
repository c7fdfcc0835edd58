#include "zmt/core/terrain/geometry/tin/predicates.h"
