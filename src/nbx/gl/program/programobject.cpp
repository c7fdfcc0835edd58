#include <nbx/gl/program/programobject.h>

#include <algorithm>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/gl/context/contextgl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>

namespace NBX::GL2 {

NBX_CLASS_IMPL(ProgramObject, MonoAttribute)

ProgramObject::ProgramObject() : MonoAttribute(true) {}

ProgramObject::~ProgramObject() = default;

void ProgramObject::attach(SO<ShaderObject> shader) {
    NBX_CHECK(shader, L"no shader");
    if (!shader) return;
    shaders_.push_back(shader);
    tried_ = false;
    modified();
}

void ProgramObject::attach(SO<BaseUniformVariable> variable) {
    NBX_CHECK(variable, L"no variable");
    if (!variable) return;
    variables_.push_back({variable, 0, false});
    modified();
}

bool ProgramObject::detach(const ShaderObject * shader) {
    const auto found = std::find(shaders_.begin(), shaders_.end(), shader);
    if (found == shaders_.end()) return false;
    shaders_.erase(found);
    tried_ = false;
    modified();
    return true;
}

bool ProgramObject::detach(const BaseUniformVariable * variable) {
    const auto found = std::find_if(variables_.begin(), variables_.end(),
                                    [&](const Variable & v) { return v.value == variable; });
    if (found == variables_.end()) return false;
    variables_.erase(found);
    modified();
    return true;
}

std::uint64_t ProgramObject::shadersTransactionNo() const {
    std::uint64_t latest = 0;
    for (const SO<ShaderObject> & shader : shaders_)
        latest = std::max(latest, shader->lastTransactionNo());
    return latest;
}

bool ProgramObject::link() const {
    name_.drop();
    for (Variable & variable : variables_)
        variable.sent = false;
    NameGL program(NameGL::NK_ShaderObject, glCreateProgramObjectARB());
    for (const SO<ShaderObject> & shader : shaders_) {
        const unsigned compiled = shader->compiled();
        if (!compiled) return false;
        glAttachObjectARB(program.get(), compiled);
    }
    glLinkProgramARB(program.get());
    GLint linked = GL_FALSE;
    glGetObjectParameterivARB(program.get(), GL_OBJECT_LINK_STATUS_ARB, &linked);
    if (linked) {
        name_ = std::move(program);
        return true;
    }
    char log[2000] = "";
    glGetInfoLogARB(program.get(), sizeof(log), nullptr, log);
    NBX_FAILURE(L"cannot link the program: " << StringUtils::Utf8String2WString(log));
    return false;
}

bool ProgramObject::use() const {
    NBX_CHECK(ContextGL::current(), L"no current context");
    if (!ContextGL::current()) return false;
    const std::uint64_t transactionNo = shadersTransactionNo();
    if (!tried_ || transactionNo != linkedTransactionNo_) {
        tried_ = true;
        linkedTransactionNo_ = transactionNo;
        link();
    }
    glUseProgramObjectARB(name_.get());
    if (!name_) return false;
    updateVariables();
    return true;
}

void ProgramObject::updateVariables() const {
    if (!name_) return;
    for (Variable & variable : variables_) {
        const std::uint64_t transactionNo = variable.value->lastTransactionNo();
        if (variable.sent && variable.sentTransactionNo == transactionNo) continue;
        variable.sent = true;
        variable.sentTransactionNo = transactionNo;
        const GLint location = glGetUniformLocationARB(name_.get(), variable.value->getName().c_str());
        if (location >= 0) variable.value->send(location);
    }
}

void ProgramObject::useNone() {
    glUseProgramObjectARB(0);
}

namespace {

void apply(EngineGL &, const ProgramObject & program, bool entering) {
    if (entering)
        program.use();
    else
        ProgramObject::useNone();
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(ProgramObject, apply)

} // namespace NBX::GL2
