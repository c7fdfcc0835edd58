#include <nbx/gl/context/namegl.h>

#include <utility>

#include "namekindsgl.h"
#include <nbx/gl/context/contextgl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NameGL::NameGL(Kind kind, unsigned name) : kind_(kind), name_(name) {
    if (isOwnedByContext(kind)) context_ = WO<ContextGL>(ContextGL::current());
}

NameGL::NameGL(NameGL && other) noexcept {
    *this = std::move(other);
}

NameGL & NameGL::operator=(NameGL && other) noexcept {
    if (this == &other) return *this;
    drop();
    kind_ = other.kind_;
    name_ = std::exchange(other.name_, 0);
    context_ = other.context_;
    return *this;
}

NameGL::~NameGL() {
    drop();
}

NameGL NameGL::generate(Kind kind) {
    NBX_CHECK(ContextGL::current(), L"no current context");
    if (!ContextGL::current()) return NameGL();
    return NameGL(kind, newNameGL(kind));
}

bool NameGL::isKnownHere() const {
    const ContextGL * current = ContextGL::current();
    return name_ != 0 && current && (!isOwnedByContext(kind_) || context_.lock().get() == current);
}

void NameGL::drop() {
    if (name_ == 0) return;
    if (!isOwnedByContext(kind_))
        ContextGL::dropShared(kind_, name_);
    else if (const SO<ContextGL> context = context_.lock())
        context->dropOwn(kind_, name_);
    name_ = 0;
}

} // namespace NBX
