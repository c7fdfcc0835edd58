// A reference is cut into names, each of which is looked for in the folder that the names before it led to.
// What comes out is held against the folder once more without links, so that nothing depends on having
// thought of every way in which a name can lead elsewhere.

#include "folderfiles.h"

#include <algorithm>
#include <filesystem>
#include <optional>

namespace NBX {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t s_mostNames = 64, s_longestReference = 4096;

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool sameButForCase(const std::string & a, const std::string & b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

int digitOf(char c) {
    c = lower(c);
    return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/// The scheme of a URL in small letters; a single letter is a drive.
std::string schemeOf(const std::string & reference) {
    std::string scheme;
    for (const char c : reference) {
        if (c == ':') return scheme;
        const bool fits = std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.';
        if (!fits) return {};
        scheme += lower(c);
    }
    return {};
}

/// Why `reference` is refused by how it looks, or nothing.
std::string refusalOf(const std::string & reference) {
    const std::string scheme = schemeOf(reference);
    if (scheme.size() == 1 || scheme == "file") return "its path is absolute";
    if (!scheme.empty()) return "it lies on a server or is no file";
    if (!reference.empty() && (reference[0] == '/' || reference[0] == '\\')) return "its path is absolute";
    if (reference.size() > s_longestReference || reference.find('\0') != std::string::npos)
        return "its path is too long or none";
    return {};
}

/// The names between the separators; "." is left out, and of a step upwards there is none.
std::optional<std::vector<std::string>> namesOf(const std::string & reference) {
    std::vector<std::string> names;
    std::string name;
    for (const char c : reference + '/') {
        if (c != '/' && c != '\\') {
            name += c;
            continue;
        }
        if (name == "..") return std::nullopt;
        if (!name.empty() && name != ".") names.push_back(name);
        name.clear();
    }
    return names;
}

bool liesBelow(const std::string & path, const std::string & folder) {
    return path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
           (folder == "/" || path[folder.size()] == '/');
}

} // namespace

FolderFiles::FolderFiles(const std::string & folder) {
    std::error_code error;
    const fs::path real = fs::canonical(folder.empty() ? "." : folder, error);
    if (!error && fs::is_directory(real, error)) folder_ = real.string();
}

std::string FolderFiles::lastName(const std::string & reference) {
    return reference.substr(reference.find_last_of("/\\") + 1);
}

std::string FolderFiles::unescaped(const std::string & reference) {
    std::string text;
    for (std::size_t i = 0; i < reference.size(); ++i) {
        const bool isEscape = reference[i] == '%' && i + 2 < reference.size() &&
                              digitOf(reference[i + 1]) >= 0 && digitOf(reference[i + 2]) >= 0;
        text += isEscape ? static_cast<char>(16 * digitOf(reference[i + 1]) + digitOf(reference[i + 2]))
                         : reference[i];
        if (isEscape) i += 2;
    }
    return text;
}

const FolderFiles::Names & FolderFiles::entries(const std::string & folder) const {
    const auto [place, isNew] = entries_.try_emplace(folder);
    if (!isNew) return place->second;
    std::error_code error;
    for (fs::directory_iterator i(folder, error), end; !error && i != end; i.increment(error))
        place->second.push_back(i->path().filename().string());
    std::sort(place->second.begin(), place->second.end());
    return place->second;
}

/// The path of an entry of that name, or empty.
std::string FolderFiles::entry(const std::string & folder, const std::string & name) const {
    const std::string prefix = folder == "/" ? folder : folder + "/";
    std::error_code error;
    if (fs::exists(prefix + name, error)) return prefix + name;
    for (const std::string & other : entries(folder))
        if (sameButForCase(other, name)) return prefix + other;
    return {};
}

FolderFiles::Found FolderFiles::findNames(const Names & names) const {
    if (folder_.empty() || names.empty()) return {};
    std::string path = folder_;
    for (const std::string & name : names) {
        path = entry(path, name);
        if (path.empty()) return {};
        // A link could lead to a folder whose names are nobody's business here.
        std::error_code error;
        const std::string real = fs::canonical(path, error).string();
        if (error) return {};
        if (!liesBelow(real, folder_)) return {"", "it is a link that leads out of " + folder_};
    }
    std::error_code error;
    return fs::is_regular_file(path, error) ? Found{path, ""} : Found{};
}

FolderFiles::Found FolderFiles::find(const std::string & reference) const {
    Found last;
    // A name may hold what looks like an escape.
    for (const std::string & text : {reference, unescaped(reference)}) {
        const std::string refusal = refusalOf(text);
        if (!refusal.empty()) return {"", refusal};
        const auto names = namesOf(text);
        if (!names) return {"", "its path leads out of the folder"};
        if (names->size() > s_mostNames) return {"", "its path is too long or none"};
        const Found found = findNames(*names);
        if (!found.path.empty()) return found;
        if (last.refusal.empty()) last = found;
    }
    return last;
}

} // namespace NBX
