#include "nbx/container/sequence/skipiterator.h"
