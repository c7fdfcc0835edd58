#include "nbx/gl/effect/interpolatedmultitexturingeffectgl.h"
