#pragma once

#include <string>

#include <nbx/data/objectwriter.h>
#include <nbx/object/so.h>

namespace NBX {

/// Writes objects into files. May be used from any thread.
class ObjectSaver {
public:
    /// Called when libraries load; writers stay for the life of the process.
    static void install(SO<ObjectWriter> writer);

    /// Writes with the installed writer of highest priority whose suffix fits and that takes the object,
    /// otherwise in our own object format (docs/object-stream.md). False, after a report, for no object.
    /// Throws `IOException` when the file cannot be written or the object's class cannot be stored.
    static bool write(const SharedObj * object, const std::string & path);
};

} // namespace NBX
