#include "nbx/gl/texture/texenvcombinegl.h"
