#include "nbx/gl/program/programobject.h"
