#pragma once

#include <string>

#include <nbx/data/dataresource.h>
#include <nbx/object/id.h>

namespace NBX {

/// Reads objects from one file format. Readers are installed with `ObjectLoader::install` and must bear
/// calls from several threads. One that fetches what it needs by itself, from a file or from a server, looks
/// at the resource's name only.
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
    /// The object name of `resource` is the file's path, or the URL. Its bytes are fetched when they are
    /// asked for: `DataResource::read` serves to recognize the format, `pointer` brings all into memory. Of
    /// files larger than a resource can be, they are the first ones; of what lies elsewhere, there are none.
    virtual SO<SharedObj> read(DataResource * resource) = 0;
    /// Whether it reads what lies elsewhere: `scheme` is that of the URL, in small letters, such as "http".
    /// Readers of local files alone, which is the default, are not asked for such objects.
    virtual bool readsFrom(const std::string & scheme) const;

    /// True when `suffix` is one of the format's, in upper or lower case.
    bool hasSuffix(const std::string & suffix) const;
};

} // namespace NBX
