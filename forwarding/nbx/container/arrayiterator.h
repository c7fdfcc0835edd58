#include "nbx/container/sequence/arrayiterator.h"
