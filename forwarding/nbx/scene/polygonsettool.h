#include "nbx/scene/shape/polygonsettool.h"
