#pragma once

#include <ostream>
#include <string>
#include <vector>

/// Arguments that a command does not take, and words of what it says of them.
struct WrongUse {
    const char * name;
    std::vector<std::string> arguments;
    const char * words;

    friend std::ostream & operator<<(std::ostream & stream, const WrongUse & c) { return stream << c.name; }
};
