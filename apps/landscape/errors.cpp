#include "errors.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <utility>
#include <vector>

#include <nbx/data/locator.h>

namespace {

using Replacement = std::pair<std::string, std::string>;

std::vector<Replacement> & replacements() {
    static std::vector<Replacement> all;
    return all;
}

std::string shownIn(std::string message) {
    for (const auto & [path, shown] : replacements())
        for (std::size_t at = 0; (at = message.find(path, at)) != std::string::npos; at += shown.size())
            message.replace(at, path.size(), shown);
    return NBX::Locator::shownIn(message);
}

} // namespace

void showInstead(const std::string & path, const std::string & shown) {
    if (!path.empty()) replacements().emplace_back(path, shown);
}

void writeError(std::string message) {
    message = shownIn(std::move(message));
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::fprintf(stderr, "zmt: %s\n", message.c_str());
}

std::string oneLine(std::string text) {
    for (char & letter : text)
        if (static_cast<unsigned char>(letter) < ' ' || letter == '\x7f') letter = ' ';
    return text;
}

std::string messageOf(const std::exception & error) {
    if (dynamic_cast<const std::bad_alloc *>(&error))
        return "out of memory; try a smaller raster or fewer vertices";
    return shownIn(error.what());
}
