#include "nbx/gl/context/enginegl.h"
