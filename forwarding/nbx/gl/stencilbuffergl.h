#include "nbx/gl/state/stencilbuffergl.h"
