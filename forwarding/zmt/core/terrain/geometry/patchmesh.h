#include "zmt/core/terrain/inspect/patchmesh.h"
