#include "nbx/gl/texture/texturegl.h"
