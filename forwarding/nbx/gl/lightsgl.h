#include "nbx/gl/state/lightsgl.h"
