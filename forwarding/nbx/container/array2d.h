#include "nbx/container/sequence/array2d.h"
