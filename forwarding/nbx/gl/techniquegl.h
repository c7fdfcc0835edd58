#include "nbx/gl/context/techniquegl.h"
