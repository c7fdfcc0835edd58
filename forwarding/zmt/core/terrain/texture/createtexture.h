#include "zmt/core/terrain/geometry/view/createtexture.h"
