#include "nbx/container/sequence/fixedsizeiterator.h"
