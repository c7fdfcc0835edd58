#include "zmt/core/misc/externallinksolver.h"
