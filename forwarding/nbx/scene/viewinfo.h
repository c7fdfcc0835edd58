#include "nbx/scene/view/viewinfo.h"
