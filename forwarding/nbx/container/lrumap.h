#include "nbx/container/map/lrumap.h"
