#include "zmt/core/terrain/geometry/chunked/chunkedlodterrain.h"
