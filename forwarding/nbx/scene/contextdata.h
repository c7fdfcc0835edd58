#include "nbx/scene/attribute/contextdata.h"
