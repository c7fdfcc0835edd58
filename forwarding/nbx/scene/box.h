#include "nbx/scene/shape/box.h"
