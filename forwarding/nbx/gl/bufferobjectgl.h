#include "nbx/gl/mesh/bufferobjectgl.h"
