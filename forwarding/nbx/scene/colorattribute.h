#include "nbx/scene/attribute/colorattribute.h"
