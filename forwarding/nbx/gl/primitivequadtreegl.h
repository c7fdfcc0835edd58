#include "nbx/gl/mesh/primitivequadtreegl.h"
