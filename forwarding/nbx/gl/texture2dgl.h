#include "nbx/gl/texture/texture2dgl.h"
