#pragma once

#include <string>

#include <nbx/object/sharedobj.h>

namespace NBX::GL2 {

/// A value for a variable of a program; see `ProgramObject::attach`.
class BaseUniformVariable : public SharedObj {
    NBX_CLASS(BaseUniformVariable, SharedObj)
public:
    explicit BaseUniformVariable(const std::string & name) : name_(name) {}
    const std::string & getName() const { return name_; }

    /// Sends the value to the variable at `location` of the program in use.
    virtual void send(int location) const = 0;

private:
    std::string name_;
};

} // namespace NBX::GL2
