#include "nbx/gl/mesh/vertexarraysgl.h"
