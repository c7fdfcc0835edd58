#include "nbx/gl/state/occlusionquerygl.h"
