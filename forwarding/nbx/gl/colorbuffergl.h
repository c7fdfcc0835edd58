#include "nbx/gl/state/colorbuffergl.h"
