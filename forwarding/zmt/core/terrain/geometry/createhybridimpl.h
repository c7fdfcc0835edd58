#include "zmt/core/terrain/geometry/hybrid/createhybridimpl.h"
