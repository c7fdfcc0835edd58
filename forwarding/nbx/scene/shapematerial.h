#include "nbx/scene/attribute/shapematerial.h"
