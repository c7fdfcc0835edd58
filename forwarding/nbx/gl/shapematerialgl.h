#include "nbx/gl/state/shapematerialgl.h"
