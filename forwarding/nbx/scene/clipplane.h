#include "nbx/scene/attribute/clipplane.h"
