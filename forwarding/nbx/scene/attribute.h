#include "nbx/scene/attribute/attribute.h"
