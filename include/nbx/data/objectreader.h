#pragma once

#include <string>

#include <nbx/data/dataresource.h>
#include <nbx/object/id.h>

namespace NBX {

/// Reads objects from one file format. Readers are installed with `ObjectLoader::install` and must bear
/// calls from several threads.
class ObjectReader : public SharedObj {
    NBX_CLASS(ObjectReader, SharedObj)
public:
    /// Readers of a higher priority are asked first.
    virtual int priority() const;
    /// True when the reader may give objects of the class `className` or of classes derived from it.
    virtual bool canProduce(const ID & className) const = 0;
    /// Suffixes of the format's file names, without dot, in lower case, with ';' between them: "jpg;jpeg".
    virtual std::string objectFileSuffix() const = 0;
    /// The format's name for people.
    virtual std::string objectFormatName() const = 0;
    /// The object, or null when the data is none of this format or is unusable, for which it may also throw.
    /// The object name of `resource` is the file's path; of files larger than a resource can be, it holds
    /// the first bytes only.
    virtual SO<SharedObj> read(DataResource * resource) = 0;

    /// True when `suffix` is one of the format's, in upper or lower case.
    bool hasSuffix(const std::string & suffix) const;
};

} // namespace NBX
