#pragma once

#include <cstdint>
#include <vector>

#include <nbx/gl/program/baseuniformvariable.h>
#include <nbx/gl/program/shaderobject.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX::GL2 {

/// A program of shaders; as an attribute it takes the place of the fixed functions. It may be made on any
/// thread, and is linked when it is first used.
class ProgramObject : public MonoAttribute {
    NBX_CLASS(ProgramObject, MonoAttribute)
public:
    ProgramObject();
    ~ProgramObject() override;

    /// Adds a shader, or a value that is sent to the variable of its name whenever the program comes into
    /// use. A null argument is reported.
    void attach(SO<ShaderObject> shader);
    void attach(SO<BaseUniformVariable> variable);
    /// False when it is not attached.
    bool detach(const ShaderObject * shader);
    bool detach(const BaseUniformVariable * variable);

    /// Puts the program into use, linked anew if its shaders changed, with the values of its variables. False
    /// when it cannot be linked, which is reported once; the fixed functions are in use then.
    bool use() const;
    /// Sends the values again that changed since; the program is in use.
    void updateVariables() const;
    /// Back to the fixed functions.
    static void useNone();
    /// The linked program, 0 without one.
    unsigned name() const { return name_.get(); }

private:
    struct Variable {
        SO<BaseUniformVariable> value;
        std::uint64_t sentTransactionNo;
        bool sent = false;
    };

    std::uint64_t shadersTransactionNo() const;
    bool link() const;

    std::vector<SO<ShaderObject>> shaders_;
    mutable std::vector<Variable> variables_;
    mutable NameGL name_;
    mutable std::uint64_t linkedTransactionNo_ = ~std::uint64_t(0); ///< of the shaders, when last linked
    mutable bool tried_ = false;
};

} // namespace NBX::GL2
