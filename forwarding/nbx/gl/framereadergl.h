#include "nbx/gl/context/framereadergl.h"
