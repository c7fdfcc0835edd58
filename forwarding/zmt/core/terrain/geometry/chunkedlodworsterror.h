#include "zmt/core/terrain/geometry/chunked/chunkedlodworsterror.h"
