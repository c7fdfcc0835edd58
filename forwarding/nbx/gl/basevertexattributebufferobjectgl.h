#include "nbx/gl/mesh/basevertexattributebufferobjectgl.h"
