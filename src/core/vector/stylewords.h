#pragma once

#include <string>
#include <string_view>

#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

namespace ZMT::CORE {

/// Between the words of a style.
inline constexpr std::string_view styleBlanks = " \t\r\n";

/// Throws what a style that cannot be understood throws.
[[noreturn]] inline void failStyle(const std::string & message) {
    throw NBX::InputException(NBX::StringUtils::Utf8String2WString(message));
}

} // namespace ZMT::CORE
