#include "nbx/container/sequence/subiterator.h"
