#include "nbx/gl/effect/decalmultitexturingeffectgl.h"
