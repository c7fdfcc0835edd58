#pragma once

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>

namespace NBX {

/// True when `suffix` is one of the entries of `list`, which ';' separates; case does not count.
inline bool isInSuffixList(const std::string & list, const std::string & suffix) {
    const auto equalLetters = [](unsigned char a, unsigned char b) {
        return std::tolower(a) == std::tolower(b);
    };
    std::istringstream entries(list);
    std::string entry;
    while (std::getline(entries, entry, ';'))
        if (!entry.empty() &&
            std::equal(entry.begin(), entry.end(), suffix.begin(), suffix.end(), equalLetters))
            return true;
    return false;
}

} // namespace NBX
