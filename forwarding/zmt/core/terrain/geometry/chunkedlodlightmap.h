#include "zmt/core/terrain/geometry/chunked/chunkedlodlightmap.h"
