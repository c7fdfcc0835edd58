#include "nbx/gl/state/clipplanesgl.h"
