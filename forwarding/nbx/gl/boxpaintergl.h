#include "nbx/gl/mesh/boxpaintergl.h"
