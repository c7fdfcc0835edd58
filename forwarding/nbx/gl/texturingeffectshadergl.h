#include "nbx/gl/effect/texturingeffectshadergl.h"
