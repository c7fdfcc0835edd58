#include "nbx/scene/attribute/directionallight.h"
