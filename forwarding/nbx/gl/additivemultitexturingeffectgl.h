#include "nbx/gl/effect/additivemultitexturingeffectgl.h"
