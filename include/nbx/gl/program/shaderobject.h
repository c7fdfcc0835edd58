#pragma once

#include <string>

#include <nbx/gl/context/namegl.h>
#include <nbx/object/sharedobj.h>

namespace NBX::GL2 {

/// The source of one stage of a program. It may be made on any thread; it is compiled when a program that it
/// is attached to is first used.
class ShaderObject : public SharedObj {
    NBX_CLASS(ShaderObject, SharedObj)
public:
    const std::string & getSource() const { return source_; }
    /// Programs are linked anew with it.
    void setSource(const std::string & source);

    /// The compiled shader; 0 when the source has errors, which are reported once, with the compiler's
    /// messages. Needs a current context.
    unsigned compiled() const;

protected:
    /// `stage` is GL_VERTEX_SHADER or GL_FRAGMENT_SHADER.
    ShaderObject(unsigned stage, const std::string & source);

private:
    unsigned stage_;
    std::string source_;
    mutable NameGL name_;
    mutable bool tried_ = false;
};

} // namespace NBX::GL2
