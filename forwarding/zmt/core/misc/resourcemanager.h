#include "zmt/core/cache/resourcemanager.h"
