#include "nbx/scene/attribute/distantlight.h"
