#include "nbx/container/map/dictionaryvalueiterator.h"
