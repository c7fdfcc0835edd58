#include "nbx/container/space/boundingboxtree.h"
