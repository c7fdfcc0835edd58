#pragma once

#include <string>

namespace NBX {

/// Loads shared libraries at run time.
class PlugIn {
public:
    /// Loads the library `path`; with a `name`, the library of that base name in the folder `path`. It
    /// stays loaded. A failure gives false, and is reported at level 2 unless the caller tells it otherwise.
    static bool load(const std::string & path, const std::string & name, bool reportsFailure = true);

    /// The absolute path of the loaded library with the base name of `name`, whatever prefix, suffix and
    /// version its file has: "zmt_core.dll" finds "libzmt_core.so.0.1". The empty name gives the program's
    /// own path. Empty when no such library is loaded.
    static std::string fullName(const std::string & name);
};

} // namespace NBX
