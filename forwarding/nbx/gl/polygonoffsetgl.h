#include "nbx/gl/state/polygonoffsetgl.h"
