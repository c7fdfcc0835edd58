#include "nbx/container/sequence/constantiterator.h"
