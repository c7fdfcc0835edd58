#pragma once

#include <string>
#include <vector>

#include <nbx/data/objectreader.h>

namespace NBX {

/// Reads objects from files and servers with the reader that fits. May be used from any thread.
class ObjectLoader {
public:
    /// Called when libraries load; readers stay for the life of the process.
    static void install(SO<ObjectReader> reader);
    /// By falling priority, then in order of installation.
    static std::vector<SO<ObjectReader>> readers();

    /// The object of class `className`, or of one derived from it, that lies at `locator`; any object for the
    /// empty class name. A locator is a path or a URL; one of the scheme "file" stands for a path. Of the
    /// readers that may produce the class, and read from the scheme of a URL, those whose suffix fits are
    /// asked by falling priority, and where no suffix fits, all of them; a file in our own object format is
    /// read whatever its suffix. Nothing of a file is read before a reader wants it. Null when there is no
    /// such file or no reader makes such an object of it; with `reportsFailure` that is also reported at
    /// level 2.
    static SO<SharedObj> readFile(const std::string & locator, const ID & className, bool reportsFailure);
    /// The class of the object that a file in our own object format begins with; little of it is read. Empty
    /// for any other file, and where there is none.
    static ID classOf(const std::string & path);
};

} // namespace NBX
