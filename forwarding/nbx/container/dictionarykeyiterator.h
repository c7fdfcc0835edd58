#include "nbx/container/map/dictionarykeyiterator.h"
