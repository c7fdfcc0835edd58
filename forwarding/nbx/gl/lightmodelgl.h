#include "nbx/gl/state/lightmodelgl.h"
