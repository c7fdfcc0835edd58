#include "nbx/gl/program/baseuniformvariable.h"
