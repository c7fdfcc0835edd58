#pragma once

#include <typeinfo>

#include <nbx/object/id.h>

namespace NBX {

/// Describes one class of the object model. Lives as long as the process.
class ClassInfo {
public:
    /// `parent` is null for the root of the hierarchy.
    ClassInfo(const std::type_info & type, const ClassInfo * parent);

    /// The qualified name of the class, such as "NBX::SharedObj".
    const ID & name() const { return name_; }
    const ClassInfo * parent() const { return parent_; }

    /// True for the class's own name and for the names of all its parents.
    bool isA(const ID & name) const;

private:
    ID name_;
    const ClassInfo * parent_;
};

} // namespace NBX
