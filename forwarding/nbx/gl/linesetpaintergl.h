#include "nbx/gl/mesh/linesetpaintergl.h"
