#pragma once

#include <string>

namespace NBX {

/// A text from a foreign file as it may be shown: one line, of a length that can be read.
inline std::string plainText(const std::string & text) {
    constexpr std::size_t longest = 400;
    std::string plain = text.size() > longest ? text.substr(0, longest) + "..." : text;
    for (char & c : plain)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    return plain.substr(0, plain.find_last_not_of(' ') + 1);
}

} // namespace NBX
