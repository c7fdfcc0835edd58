#pragma once

#include <string>
#include <vector>

#include <nbx/data/objectreader.h>

namespace NBX {

/// Reads object files with the reader that fits. May be used from any thread.
class ObjectLoader {
public:
    /// Called when libraries load; readers stay for the life of the process.
    static void install(SO<ObjectReader> reader);
    /// By falling priority, then in order of installation.
    static std::vector<SO<ObjectReader>> readers();

    /// The object of class `className`, or of one derived from it, in the file; any object for the empty
    /// class name. The readers that may produce it and whose suffix fits are asked by falling priority, and
    /// where no suffix fits, all that may produce it; a file in our own object format is read whatever its
    /// suffix. Null when there is no such file or no reader makes such an object of it; with `reportsFailure`
    /// that is also reported at level 2.
    static SO<SharedObj> readFile(const std::string & path, const ID & className, bool reportsFailure);
};

} // namespace NBX
