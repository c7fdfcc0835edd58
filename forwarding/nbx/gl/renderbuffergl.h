#include "nbx/gl/offscreen/renderbuffergl.h"
