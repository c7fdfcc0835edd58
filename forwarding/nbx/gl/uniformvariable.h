#include "nbx/gl/program/uniformvariable.h"
