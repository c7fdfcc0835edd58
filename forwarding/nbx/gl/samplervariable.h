#include "nbx/gl/program/samplervariable.h"
