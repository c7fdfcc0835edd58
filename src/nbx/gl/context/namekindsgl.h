#pragma once

#include <nbx/gl/context/namegl.h>

namespace NBX {

/// How OpenGL makes and frees names of each kind: no other place does. Both need a current context, and
/// `newNameGL` gives 0 for a kind that it cannot make.
unsigned newNameGL(NameGL::Kind kind);
void freeNameGL(NameGL::Kind kind, unsigned name);

} // namespace NBX
