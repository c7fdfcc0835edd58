#include <zmt/util/inireader.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/file.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

namespace ZMT::UTIL {

using NBX::StringUtils;

namespace {

constexpr std::string_view s_mark = "\xEF\xBB\xBF"; // of UTF-8
constexpr const wchar_t * s_failed = L"!file.fail()";

std::optional<std::string> bytesOf(const std::wstring & file) {
    try {
        const auto bytes = NBX::File::contents(StringUtils::WString2Utf8String(file), IniReader::largestFile);
        return std::string(bytes.begin(), bytes.end());
    } catch (const NBX::IOException &) {
        return {};
    }
}

std::wstring trimmed(const std::wstring & text) {
    constexpr const wchar_t * s_space = L" \t\r\n\v\f";
    const std::size_t begin = text.find_first_not_of(s_space);
    return begin == text.npos ? L"" : text.substr(begin, text.find_last_not_of(s_space) + 1 - begin);
}

void parseLine(const std::wstring & line, std::map<std::wstring, std::wstring> & values) {
    const std::vector<std::wstring> parts = StringUtils::Split(line, L'=');
    if (parts.size() == 2) values[trimmed(parts[0])] = trimmed(parts[1]);
}

} // namespace

void IniReader::Parse(const std::wstring & file, std::map<std::wstring, std::wstring> & values) {
    const std::optional<std::string> bytes = bytesOf(file);
    if (!bytes) {
        NBX_REPORT(2, s_failed, L"Failed to open ini file (" << file << L")");
        return;
    }
    std::string_view text = *bytes;
    const bool isUtf8 = text.substr(0, s_mark.size()) == s_mark;
    if (isUtf8) text.remove_prefix(s_mark.size());
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        parseLine(isUtf8 ? StringUtils::Utf8String2WString(line) : StringUtils::String2WString(line), values);
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
}

bool IniReader::Write(const std::wstring & file, const std::map<std::wstring, std::wstring> & values) {
    std::string text(s_mark);
    for (const auto & [key, value] : values)
        text.append(StringUtils::WString2Utf8String(key))
            .append("=")
            .append(StringUtils::WString2Utf8String(value))
            .append("\n");
    try {
        NBX::AtomicFileWriter writer(StringUtils::WString2Utf8String(file));
        writer.write(text.data(), text.size());
        writer.commit();
    } catch (const NBX::IOException &) {
        NBX_REPORT(2, s_failed, L"Failed to open/create ini file (" << file << L")");
        return false;
    }
    return true;
}

} // namespace ZMT::UTIL
