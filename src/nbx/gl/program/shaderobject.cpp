#include <nbx/gl/program/shaderobject.h>

#include <GL/glew.h>

#include <nbx/gl/context/contextgl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>

namespace NBX::GL2 {

NBX_CLASS_IMPL(ShaderObject, SharedObj)

ShaderObject::ShaderObject(unsigned stage, const std::string & source) : stage_(stage), source_(source) {}

void ShaderObject::setSource(const std::string & source) {
    source_ = source;
    name_.drop();
    tried_ = false;
    modified();
}

unsigned ShaderObject::compiled() const {
    NBX_CHECK(ContextGL::current(), L"no current context");
    if (tried_ || !ContextGL::current()) return name_.get();
    tried_ = true;
    NameGL shader(NameGL::NK_ShaderObject, glCreateShaderObjectARB(stage_));
    const char * text = source_.c_str();
    glShaderSourceARB(shader.get(), 1, &text, nullptr);
    glCompileShaderARB(shader.get());
    GLint compiled = GL_FALSE;
    glGetObjectParameterivARB(shader.get(), GL_OBJECT_COMPILE_STATUS_ARB, &compiled);
    if (compiled) {
        name_ = std::move(shader);
        return name_.get();
    }
    char log[2000] = "";
    glGetInfoLogARB(shader.get(), sizeof(log), nullptr, log);
    NBX_FAILURE(L"cannot compile the shader: " << StringUtils::Utf8String2WString(log));
    return 0;
}

} // namespace NBX::GL2
