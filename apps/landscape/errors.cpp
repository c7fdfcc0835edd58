#include "errors.h"

#include <algorithm>
#include <cstdio>
#include <new>

#include <nbx/data/locator.h>

void writeError(std::string message) {
    message = NBX::Locator::shownIn(message);
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::fprintf(stderr, "zmt: %s\n", message.c_str());
}

std::string messageOf(const std::exception & error) {
    if (dynamic_cast<const std::bad_alloc *>(&error))
        return "out of memory; try a smaller raster or fewer vertices";
    return NBX::Locator::shownIn(error.what());
}
