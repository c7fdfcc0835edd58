#include "nbx/container/map/dictionary.h"
