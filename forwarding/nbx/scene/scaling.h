#include "nbx/scene/view/scaling.h"
