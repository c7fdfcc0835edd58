#include "nbx/gl/offscreen/pbuffercanvasgl.h"
