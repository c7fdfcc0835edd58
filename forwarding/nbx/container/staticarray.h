#include "nbx/container/sequence/staticarray.h"
