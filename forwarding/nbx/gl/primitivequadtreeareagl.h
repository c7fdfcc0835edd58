#include "nbx/gl/mesh/primitivequadtreeareagl.h"
