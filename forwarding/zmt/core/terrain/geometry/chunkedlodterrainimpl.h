#include "zmt/core/terrain/geometry/chunked/chunkedlodterrainimpl.h"
