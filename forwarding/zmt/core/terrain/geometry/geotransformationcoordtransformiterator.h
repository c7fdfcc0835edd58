#include "zmt/core/terrain/frame/geotransformationcoordtransformiterator.h"
