#include "nbx/gl/effect/multitexturinggl.h"
