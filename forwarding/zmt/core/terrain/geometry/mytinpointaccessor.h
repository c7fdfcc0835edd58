#include "zmt/core/terrain/geometry/tree/mytinpointaccessor.h"
