#include "nbx/container/sequence/stack.h"
