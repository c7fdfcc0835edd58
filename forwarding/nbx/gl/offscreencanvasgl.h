#include "nbx/gl/offscreen/offscreencanvasgl.h"
