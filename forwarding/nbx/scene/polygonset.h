#include "nbx/scene/shape/polygonset.h"
