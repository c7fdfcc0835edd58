#include "nbx/scene/view/projection.h"
