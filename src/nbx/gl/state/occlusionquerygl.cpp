#include <nbx/gl/state/occlusionquerygl.h>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(OcclusionQueryGL, MonoAttribute)

namespace {

/// Name of the query that counts at the moment, or 0.
GLuint countingQuery() {
    GLint name = 0;
    glGetQueryiv(GL_SAMPLES_PASSED, GL_CURRENT_QUERY, &name);
    return GLuint(name);
}

} // namespace

OcclusionQueryGL::OcclusionQueryGL(QueryMode mode) : MonoAttribute(true), mode_(mode) {}

OcclusionQueryGL::OcclusionQueryGL(int mode)
    : OcclusionQueryGL(mode == QM_AnyFragments ? QM_AnyFragments : QM_CountFragments) {
    NBX_CHECK_RANGE(0, mode, 2);
}

OcclusionQueryGL::~OcclusionQueryGL() = default;

void OcclusionQueryGL::begin() const {
    if (!name_.isKnownHere()) name_ = NameGL::generate(NameGL::NK_Query);
    ended_ = false;
    if (!name_) return;
    if (countingQuery()) glEndQuery(GL_SAMPLES_PASSED);
    glBeginQuery(GL_SAMPLES_PASSED, name_.get());
}

void OcclusionQueryGL::end() const {
    if (!name_.isKnownHere()) return;
    if (countingQuery() == name_.get()) glEndQuery(GL_SAMPLES_PASSED);
    ended_ = true;
}

bool OcclusionQueryGL::hasResult() const {
    return ended_ && name_.isKnownHere();
}

bool OcclusionQueryGL::isAvailable() const {
    if (!hasResult()) return false;
    GLuint available = 0;
    glGetQueryObjectuiv(name_.get(), GL_QUERY_RESULT_AVAILABLE, &available);
    return available != 0;
}

unsigned OcclusionQueryGL::fragmentCount() const {
    if (!hasResult()) return 0;
    GLuint count = 0;
    glGetQueryObjectuiv(name_.get(), GL_QUERY_RESULT, &count);
    return mode_ == QM_AnyFragments ? count > 0 : count;
}

namespace {

void apply(EngineGL &, const OcclusionQueryGL & query, bool entering) {
    if (entering)
        query.begin();
    else
        query.end();
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(OcclusionQueryGL, apply)

} // namespace NBX
