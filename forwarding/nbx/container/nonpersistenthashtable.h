#include "nbx/container/map/nonpersistenthashtable.h"
