#include "zmt/core/terrain/geometry/chunked/chunkedlodmesh.h"
