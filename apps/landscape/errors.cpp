#include "errors.h"

#include <algorithm>
#include <cstdio>
#include <new>

void writeError(std::string message) {
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::fprintf(stderr, "zmt: %s\n", message.c_str());
}

std::string messageOf(const std::exception & error) {
    if (dynamic_cast<const std::bad_alloc *>(&error))
        return "out of memory; try a smaller raster or fewer vertices";
    return error.what();
}
