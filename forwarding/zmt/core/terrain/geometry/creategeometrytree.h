#include "zmt/core/terrain/geometry/tree/creategeometrytree.h"
