#include "nbx/container/sequence/nonpersistentstaticarray.h"
