#include "nbx/gl/mesh/vertexattributeshapepaintergl.h"
