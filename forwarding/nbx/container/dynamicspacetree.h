#include "nbx/container/space/dynamicspacetree.h"
