#include "nbx/gl/texture/textureunitsettinggl.h"
