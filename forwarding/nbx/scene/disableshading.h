#include "nbx/scene/attribute/disableshading.h"
