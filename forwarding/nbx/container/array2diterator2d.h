#include "nbx/container/sequence/array2diterator2d.h"
