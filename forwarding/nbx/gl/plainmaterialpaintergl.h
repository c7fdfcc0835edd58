#include "nbx/gl/state/plainmaterialpaintergl.h"
