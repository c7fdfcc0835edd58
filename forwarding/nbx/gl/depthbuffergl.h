#include "nbx/gl/state/depthbuffergl.h"
