#include "nbx/gl/texture/imageopengltool.h"
