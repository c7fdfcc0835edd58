#include "nbx/scene/node/scenenode.h"
