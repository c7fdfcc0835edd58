#include "nbx/gl/context/contextgl.h"
