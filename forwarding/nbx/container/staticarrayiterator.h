#include "nbx/container/sequence/staticarrayiterator.h"
