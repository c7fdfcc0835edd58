#pragma once

#include <string>

#include <nbx/data/file.h>

namespace NBX {

/// The suffix of a file's name, with small letters of the English alphabet.
inline std::string suffixOf(const std::string & path) {
    std::string suffix = File::extensionName(path);
    for (char & c : suffix)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return suffix;
}

} // namespace NBX
