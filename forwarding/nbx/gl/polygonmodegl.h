#include "nbx/gl/state/polygonmodegl.h"
