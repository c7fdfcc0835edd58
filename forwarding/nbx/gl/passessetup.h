#include "nbx/gl/effect/passessetup.h"
