#include "nbx/container/map/hashtable.h"
