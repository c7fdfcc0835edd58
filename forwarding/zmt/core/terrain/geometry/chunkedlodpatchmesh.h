#include "zmt/core/terrain/geometry/chunked/chunkedlodpatchmesh.h"
