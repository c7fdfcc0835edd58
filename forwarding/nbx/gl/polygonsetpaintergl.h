#include "nbx/gl/mesh/polygonsetpaintergl.h"
