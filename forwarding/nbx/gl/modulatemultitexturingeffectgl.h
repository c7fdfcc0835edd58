#include "nbx/gl/effect/modulatemultitexturingeffectgl.h"
