#include "userfolder.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <nbx/data/file.h>

std::string userFolder() {
    const char * folder = std::getenv("XDG_CONFIG_HOME");
    if (folder && *folder == '/') return NBX::File::absolutePath(std::string(folder) + "/zmt/");
    const char * home = std::getenv("HOME");
    return home && *home == '/' ? NBX::File::absolutePath(std::string(home) + "/.config/zmt/") : "";
}

std::string percentEncoded(const std::string & text) {
    constexpr std::string_view kept = "-._~/:,+";
    const auto isKept = [&](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               kept.find(c) != kept.npos;
    };
    std::string result;
    for (const char c : text) {
        char code[4] = {c};
        if (!isKept(c)) std::snprintf(code, sizeof code, "%%%02X", static_cast<unsigned char>(c));
        result += code;
    }
    return result;
}
