#include "zmt/core/terrain/inspect/patchinspectorgl.h"
