#include "nbx/container/map/dictionaryitem.h"
