#include "nbx/scene/shape/shape.h"
