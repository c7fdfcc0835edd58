#include <zmt/core/terrain/geometry/base/geometrypatchpaintergl.h>

#include <GL/gl.h>

#include <nbx/engine/canvas.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/attribute/contextdata.h>
#include <zmt/core/misc/usedisplaylistgl.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>

namespace ZMT::CORE {

namespace {

bool allowsDisplayLists(const NBX::Engine & engine) {
    const auto * use =
        dynamic_cast<UseDisplayListGL *>(engine.getAttribute(UseDisplayListGL::ClassNameNBX()));
    if (use && !use->getActive()) return false;
    const auto * canvas = engine.getAttribute(NBX::Canvas::ClassNameNBX());
    return !dynamic_cast<const NBX::ContextData<NBX::Canvas *> *>(canvas);
}

/// The patch's display list, recorded when it is new; 0 when there are none left.
unsigned displayList(NBX::EngineGL & engine, GeometryPatchPainterGL & painter, const GeometryPatch & patch) {
    auto * object = const_cast<GeometryPatch *>(&patch);
    unsigned id = engine.getDisplayList(object);
    if (id != 0) return id;
    id = engine.newDisplayList(object, painter.displayListBytes(&patch));
    if (id == 0) return 0;
    glNewList(id, GL_COMPILE);
    painter.renderPatch(&engine, &patch);
    glEndList();
    return id;
}

} // namespace

NBX_CLASS_IMPL(GeometryPatchPainterGL, NBX::ShapePainter)

const NBX::ID & GeometryPatchPainterGL::outerWallFlag() {
    static const NBX::ID flag("RenderOuterWallFlag");
    return flag;
}

unsigned GeometryPatchPainterGL::displayListBytes(const GeometryPatch *) const {
    return NBX::EngineGL::usualListBytes;
}

bool GeometryPatchPainterGL::render(NBX::Engine * engine, const NBX::Shape * shape) {
    NBX_CHECK(engine, L"no engine");
    auto * engineGL = dynamic_cast<NBX::EngineGL *>(engine);
    const auto * patch = dynamic_cast<const GeometryPatch *>(shape);
    if (!engineGL || !patch) return false;

    if (engine->getAttribute(outerWallFlag())) {
        renderOuterWall(engineGL, patch);
        return true;
    }
    if (shouldUseDisplayLists() && allowsDisplayLists(*engine)) {
        if (const unsigned id = displayList(*engineGL, *this, *patch)) {
            glCallList(id);
            return true;
        }
    }
    renderPatch(engineGL, patch);
    return true;
}

} // namespace ZMT::CORE
