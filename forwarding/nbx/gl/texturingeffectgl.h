#include "nbx/gl/effect/texturingeffectgl.h"
