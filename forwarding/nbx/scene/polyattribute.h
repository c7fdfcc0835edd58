#include "nbx/scene/attribute/polyattribute.h"
