#include "nbx/scene/attribute/attributecomposite.h"
