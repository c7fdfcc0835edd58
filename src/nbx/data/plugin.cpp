#include <nbx/data/plugin.h>

#include <vector>

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <nbx/data/file.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>

namespace NBX {

namespace {

std::string programPath() {
    std::string path(4096, '\0');
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return path;
}

/// "a/libzmt_core.so.0.1" and "zmt_core.dll" both give "zmt_core".
std::string libraryBaseName(const std::string & path) {
    std::string name = File::fileName(path);
    const bool hasPrefix = name.starts_with("lib") && name.find(".so") != std::string::npos;
    name = name.substr(hasPrefix ? 3 : 0);
    for (const char * suffix : {".so", ".dll"})
        if (const std::size_t at = name.find(suffix); at != std::string::npos && at > 0) name.resize(at);
    return name;
}

std::vector<std::string> loadedLibraries() {
    std::vector<std::string> result;
    ::dl_iterate_phdr(
        [](dl_phdr_info * info, std::size_t, void * list) {
            if (info->dlpi_name && info->dlpi_name[0])
                static_cast<std::vector<std::string> *>(list)->emplace_back(info->dlpi_name);
            return 0;
        },
        &result);
    return result;
}

std::string libraryPath(const std::string & path, const std::string & name) {
    if (name.empty()) return path;
    const std::string folder = path.empty() || path.back() == '/' ? path : path + "/";
    for (const std::string & file : {name, name + ".so", "lib" + name + ".so"})
        if (File::isFile(folder + file)) return folder + file;
    return folder + "lib" + name + ".so";
}

} // namespace

bool PlugIn::load(const std::string & path, const std::string & name, bool reportsFailure) {
    // An absolute path, since the loader would search its own folders for a bare name.
    const std::string library = File::absolutePath(libraryPath(path, name));
    if (::dlopen(library.c_str(), RTLD_NOW | RTLD_GLOBAL)) return true;
    const char * reason = ::dlerror();
    if (reportsFailure)
        NBX_FAILURE(L"cannot load the plug-in: "
                    << StringUtils::Utf8String2WString(reason ? reason : library));
    return false;
}

std::string PlugIn::fullName(const std::string & name) {
    if (name.empty()) return programPath();
    const std::string wanted = libraryBaseName(name);
    for (const std::string & library : loadedLibraries())
        if (libraryBaseName(library) == wanted) return File::absolutePath(library);
    return "";
}

} // namespace NBX
