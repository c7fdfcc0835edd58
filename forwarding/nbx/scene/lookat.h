#include "nbx/scene/view/lookat.h"
