#include "nbx/gl/mesh/vertexattributebufferobjectgl.h"
