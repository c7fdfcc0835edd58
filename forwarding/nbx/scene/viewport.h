#include "nbx/scene/view/viewport.h"
