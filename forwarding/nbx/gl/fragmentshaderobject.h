#include "nbx/gl/program/fragmentshaderobject.h"
