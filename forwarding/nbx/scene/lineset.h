#include "nbx/scene/shape/lineset.h"
