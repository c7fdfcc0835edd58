#include "clipplanesgl.h"

#include <algorithm>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/attribute/clipplane.h>

namespace NBX {

namespace {

/// Planes are switched on in the order of their numbers.
unsigned activePlanes() {
    unsigned count = 0;
    while (count < ClipPlane::maxPlanes && glIsEnabled(GL_CLIP_PLANE0 + count))
        ++count;
    return count;
}

void activate(unsigned number, const ClipPlane & plane) {
    const Vector3Base<double> normal = plane.getNormal();
    const GLdouble equation[4] = {normal.x, normal.y, normal.z, plane.getDistance()};
    glClipPlane(GL_CLIP_PLANE0 + number, equation);
    glEnable(GL_CLIP_PLANE0 + number);
}

} // namespace

void ClipPlanesGL::update(EngineGL * engine) {
    const ID category = ClipPlane::ClassNameNBX();
    const unsigned count = engine->polyAttributeCount(category, Engine::PS_Enabled);
    NBX_CHECK(count <= ClipPlane::maxPlanes, L"too many clip planes: " << count);
    const unsigned wanted = std::min(ClipPlane::maxPlanes, count);
    unsigned active = activePlanes();
    for (; active > wanted; --active)
        glDisable(GL_CLIP_PLANE0 + active - 1);
    for (; active < wanted; ++active)
        if (const auto * plane =
                dynamic_cast<const ClipPlane *>(engine->polyAttribute(category, active, Engine::PS_Enabled)))
            activate(active, *plane);
}

namespace {

const bool s_planesRegistered =
    (EngineGL::setPolyAttributesPainter(ClipPlane::ClassNameNBX(), &ClipPlanesGL::update), true);

} // namespace

} // namespace NBX
