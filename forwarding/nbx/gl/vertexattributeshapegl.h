#include "nbx/gl/mesh/vertexattributeshapegl.h"
