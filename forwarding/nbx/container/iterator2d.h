#include "nbx/container/sequence/iterator2d.h"
