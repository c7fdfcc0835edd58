#include "nbx/scene/attribute/pointlight.h"
