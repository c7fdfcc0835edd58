#include "nbx/gl/context/glcanvas.h"
