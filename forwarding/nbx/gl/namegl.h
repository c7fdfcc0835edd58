#include "nbx/gl/context/namegl.h"
