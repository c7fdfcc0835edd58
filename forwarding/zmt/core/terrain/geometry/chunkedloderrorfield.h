#include "zmt/core/terrain/geometry/chunked/chunkedloderrorfield.h"
