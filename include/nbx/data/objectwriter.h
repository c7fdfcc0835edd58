#pragma once

#include <string>

#include <nbx/object/sharedobj.h>

namespace NBX {

/// Writes objects in one file format; see `ObjectSaver`.
class ObjectWriter : public SharedObj {
    NBX_CLASS(ObjectWriter, SharedObj)
public:
    /// Writers of a higher priority are asked first.
    virtual int priority() const;
    virtual bool canWrite(const SharedObj * object) const = 0;
    /// As `ObjectReader::objectFileSuffix`.
    virtual std::string objectFileSuffix() const = 0;
    virtual std::string objectFormatName() const = 0;
    /// Writes the whole file or leaves the one before; throws `IOException`.
    virtual void write(const SharedObj * object, const std::string & path) = 0;

    /// True when `suffix` is one of the format's, in upper or lower case.
    bool hasSuffix(const std::string & suffix) const;
};

} // namespace NBX
