#include "nbx/scene/base/renderobj.h"
