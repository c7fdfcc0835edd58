#include "zmt/raster/vector/vectorline.h"
