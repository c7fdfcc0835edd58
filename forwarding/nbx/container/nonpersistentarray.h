#include "nbx/container/sequence/nonpersistentarray.h"
