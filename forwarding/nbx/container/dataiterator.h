#include "nbx/container/sequence/dataiterator.h"
