#include "nbx/container/sequence/iterator.h"
