#include "nbx/gl/program/vertexshaderobject.h"
