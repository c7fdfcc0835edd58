#include "nbx/scene/view/translation.h"
