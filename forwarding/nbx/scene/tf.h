#include "nbx/scene/view/tf.h"
