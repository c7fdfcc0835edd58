// Any bytes as a file of settings, and what was read written and read again: no crash, no hang, no more
// entries than equals signs, and the same entries from what is written.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <unistd.h>

#include <nbx/object/stringutils.h>
#include <zmt/util/inireader.h>

using ZMT::UTIL::IniReader;
using Values = std::map<std::wstring, std::wstring>;

namespace {

const std::string & path() {
    static const std::string name = "/tmp/inireader_fuzz_" + std::to_string(::getpid()) + ".ini";
    static const int atExit = std::atexit([] { std::remove(name.c_str()); });
    (void)atExit;
    return name;
}

Values parsed(const std::wstring & file) {
    Values values;
    IniReader::Parse(file, values);
    return values;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t * data, std::size_t size) {
    std::FILE * file = std::fopen(path().c_str(), "wb");
    if (!file) return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    const std::wstring name = NBX::StringUtils::Utf8String2WString(path());
    const Values values = parsed(name);
    if (values.size() > std::size_t(std::count(data, data + size, '='))) __builtin_trap();
    if (!IniReader::Write(name, values)) __builtin_trap();
    if (parsed(name) != values) __builtin_trap();
    return 0;
}
