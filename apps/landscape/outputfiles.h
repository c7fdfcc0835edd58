#pragma once

#include <string>
#include <vector>

/// A file, and how messages call it: by the option that names it.
struct NamedFile {
    std::string option; ///< such as "--out"
    std::string path;   ///< empty where the option was not given
};

/// Throws `UsageError` where an output is an input as well, or another output, so that writing it would
/// destroy what is read or written there. Files are told apart as the system does it, not by their names:
/// links and other spellings of a folder make no difference, also where a file does not exist yet. An input
/// counts with all the files that are read for it, such as the sources of a virtual raster.
void checkOutputs(const std::vector<NamedFile> & inputs, const std::vector<NamedFile> & outputs);
