#include "nbx/container/space/spacetree.h"
