#include "nbx/scene/view/camera.h"
