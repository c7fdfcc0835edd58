#include "nbx/scene/attribute/facestyle.h"
