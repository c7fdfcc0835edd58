#pragma once

#include <map>
#include <string>

namespace ZMT::UTIL {

/// Files of lines "key=value", for settings of applications.
///
/// A line counts where it has exactly one "=", so that neither keys nor values can hold one; white space at
/// both ends of each is no part of them. Everything else is skipped: comments and "[sections]" need no rule.
class IniReader {
public:
    /// A larger file is no file of settings, and is not read.
    static constexpr std::size_t largestFile = 1U << 28;

    /// Puts the entries of a file into `values`, the last one of a key, in the place of what it has there.
    /// Lines are UTF-8 where the file begins with the mark of that, otherwise in the 8-bit code page of the
    /// system (`NBX::StringUtils::String2WString`). Ends of lines are "\n" or "\r\n". A file that cannot be
    /// read is reported, and leaves `values` alone.
    static void Parse(const std::wstring & file, std::map<std::wstring, std::wstring> & values);

    /// Writes all entries as UTF-8 with its mark, in order, in the place of what the file was; nothing is
    /// quoted, so who needs "=", ends of lines or outer spaces encodes them first. False, after a report,
    /// where the file cannot be written, which is then as it was.
    static bool Write(const std::wstring & file, const std::map<std::wstring, std::wstring> & values);
};

} // namespace ZMT::UTIL
