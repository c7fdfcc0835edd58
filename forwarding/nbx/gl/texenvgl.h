#include "nbx/gl/texture/texenvgl.h"
