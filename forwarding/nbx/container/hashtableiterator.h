#include "nbx/container/map/hashtableiterator.h"
