#include "nbx/container/sequence/serializevalues.h"
