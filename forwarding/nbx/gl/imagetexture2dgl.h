#include "nbx/gl/texture/imagetexture2dgl.h"
