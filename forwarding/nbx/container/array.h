#include "nbx/container/sequence/array.h"
