#include "nbx/scene/shape/composite.h"
