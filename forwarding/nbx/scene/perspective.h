#include "nbx/scene/view/perspective.h"
