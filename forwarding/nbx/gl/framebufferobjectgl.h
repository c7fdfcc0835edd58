#include "nbx/gl/offscreen/framebufferobjectgl.h"
