#include "zmt/core/terrain/geometry/chunked/chunkedlodterrainpatch.h"
