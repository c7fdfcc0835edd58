#include "nbx/container/map/nonpersistentdictionary.h"
