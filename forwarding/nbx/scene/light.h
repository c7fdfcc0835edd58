#include "nbx/scene/attribute/light.h"
