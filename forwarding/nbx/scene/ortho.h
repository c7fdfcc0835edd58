#include "nbx/scene/view/ortho.h"
