#include "nbx/gl/program/shaderobject.h"
