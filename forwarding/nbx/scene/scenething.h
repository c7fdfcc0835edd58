#include "nbx/scene/node/scenething.h"
