#include "nbx/scene/attribute/monoattribute.h"
