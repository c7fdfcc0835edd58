#include "nbx/gl/texture/texgengl.h"
