// A texture is asked for patches of a quadtree of its own, over its box, or over the terrain where it has
// none; the view is that of the picture, so that its texels are as fine as the screen shows them. The patches
// stay: caches of textures know them by identity.

#include "renderrastertexturegl.h"

#include <GL/glew.h>

#include <nbx/gl/program/programobject.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/view/viewport.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>

#include "trapezoidprogramsgl.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(RenderRasterTexture_GeometryPatch, GeometryPatch)
NBX_CLASS_IMPL(RenderRasterTexture, NBX::Shape)
NBX_CLASS_IMPL(RenderRasterTexturePainterGL, NBX::ShapePainter)

namespace {

using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;

/// The heights are those of the terrain.
NBX::Bounds areaOf(const NBX::Bounds & own, const NBX::Bounds & terrain) {
    if (!own.isDefined()) return terrain;
    if (!terrain.isDefined()) return own;
    const Point & low = own.getLLF();
    const Point & high = own.getURB();
    return {Point(low.x, terrain.getLLF().y, low.z), Point(high.x, terrain.getURB().y, high.z)};
}

/// The program, the matrices, the units and their textures as they are found.
class TexturingGuard {
public:
    TexturingGuard() : program_(glGetHandleARB(GL_PROGRAM_OBJECT_ARB)) {
        glPushAttrib(GL_TEXTURE_BIT | GL_TRANSFORM_BIT | GL_CURRENT_BIT | GL_ENABLE_BIT | GL_POLYGON_BIT);
        glActiveTexture(GL_TEXTURE0);
        glDisable(GL_CULL_FACE);
        glMatrixMode(GL_TEXTURE);
        glPushMatrix();
    }
    ~TexturingGuard() {
        glActiveTexture(GL_TEXTURE0);
        glMatrixMode(GL_TEXTURE);
        glPopMatrix();
        glPopAttrib();
        glUseProgramObjectARB(program_);
    }
    TexturingGuard(const TexturingGuard &) = delete;
    TexturingGuard & operator=(const TexturingGuard &) = delete;

private:
    const GLhandleARB program_;
};

void drawPlan(const NBX::Bounds & box) {
    const Point & low = box.getLLF();
    const Point & high = box.getURB();
    glBegin(GL_QUADS);
    for (const auto & [x, z] : {std::array{low.x, low.z}, std::array{high.x, low.z},
                                std::array{high.x, high.z}, std::array{low.x, high.z}}) {
        glMultiTexCoord4d(GL_TEXTURE0, x, z, 0.0, 1.0);
        glVertex3d(x, z, 0.0);
    }
    glEnd();
}

/// The view in force, for a shape that stands in a scene by itself.
void setFromEngine(TrapezoidPass & pass, NBX::EngineGL & engine) {
    const Matrix fromPlan({1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1});
    pass.trapMat = engine.projectionMatrix() * engine.modelViewMatrix() * fromPlan;
    pass.view = engine.viewInfo();
    pass.engine = &engine;
    const NBX::Area area = engine.viewport() ? engine.viewport()->getArea() : NBX::Area();
    pass.viewportWidth = area.getWidth();
    pass.viewportHeight = area.getHeight();
    pass.textureError = TerrainPainterGLSettings::getTextureError();
}

} // namespace

RenderRasterTexture_GeometryPatch::RenderRasterTexture_GeometryPatch(const NBX::Bounds & box, unsigned depth)
    : GeometryPatch(box, 0.0, box.getLLF().y, nullptr), depth_(depth) {}

NBX::SO<GeometryData> RenderRasterTexture_GeometryPatch::data() const {
    return nullptr;
}

NBX::SO<GeometryPatch> RenderRasterTexture_GeometryPatch::child(unsigned i) const {
    NBX_CHECK(i < children(), L"range error: [0, " << children() << L"), " << i);
    if (i >= children()) return nullptr;
    if (!children_[i]) {
        const NBX::Bounds box = boundingBox();
        const double x = i & 1U ? 0.5 : 0.0, z = i & 2U ? 0.5 : 0.0;
        NBX::SO<RenderRasterTexture_GeometryPatch> child(new RenderRasterTexture_GeometryPatch(
            {box.point(x, 0.0, z), box.point(x + 0.5, 1.0, z + 0.5)}, depth_ + 1));
        child->setParent(NBX::WO<GeometryPatch>(const_cast<RenderRasterTexture_GeometryPatch *>(this)));
        children_[i] = child;
    }
    return children_[i];
}

RenderRasterTexture::RenderRasterTexture(const NBX::SO<TerrainTexture> & texture)
    : Shape(true), texture_(texture) {
    NBX_CHECK(texture, L"no texture");
}

NBX::Bounds RenderRasterTexture::boundingBox() const {
    const NBX::Bounds box = texture_ ? texture_->boundingBox() : NBX::Bounds();
    return box.isDefined() ? areaOf(box, NBX::Bounds(Point(0.0, 0.0, 0.0))) : box;
}

NBX::SO<RenderRasterTexture_GeometryPatch> RenderRasterTexture::root(const NBX::Bounds & terrain) const {
    const NBX::Bounds own = texture_->boundingBox();
    const NBX::Bounds box = areaOf(own, own.isDefined() && !terrain.isDefined() ? boundingBox() : terrain);
    if (!box.isDefined()) return nullptr;
    if (!root_ || root_->boundingBox() != box) root_ = new RenderRasterTexture_GeometryPatch(box);
    return root_;
}

void RenderRasterTexture::draw(NBX::EngineGL * engine) const {
    NBX_CHECK(engine, L"no engine");
    if (!engine || !texture_) return;
    if (TrapezoidPass * pass = TrapezoidPass::current()) {
        const auto patch = root(pass->terrain);
        if (!patch) return;
        const TexturingGuard guard;
        if (TrapezoidProgramsGL::useTextured(pass->trapMat)) draw(*patch, *pass, *engine);
        return;
    }
    TrapezoidPass pass;
    setFromEngine(pass, *engine);
    draw(engine);
}

void RenderRasterTexture::draw(const GeometryPatch & patch, TrapezoidPass & pass,
                               NBX::EngineGL & engine) const {
    const NBX::Bounds box = patch.boundingBox();
    if (pass.view->cull(box) == -1) return;
    const Point eye =
        box.nearestPoint(pass.view->position() + pass.view->direction() * pass.view->nearDistance());
    if (patch.children() > 0 &&
        texture_->refine(&patch, pass.view.get(), pass.viewportWidth, pass.viewportHeight, eye,
                         pass.textureError, pass.inMotion)) {
        for (unsigned i = 0; i < patch.children(); ++i)
            draw(*patch.child(i), pass, engine);
        return;
    }
    const auto texture =
        texture_->request(&patch, pass.engine, pass.view.get(), pass.viewportWidth, pass.viewportHeight, 1.0,
                          eye, pass.textureError, pass.inMotion, pass.asynchronous, pass.isIncomplete);
    if (!texture) return;
    texture->bind(&engine);
    const auto matrix = texture->getMatrix().columns();
    glLoadMatrixd(matrix.data());
    drawPlan(box);
}

NBX::ID RenderRasterTexturePainterGL::target() const {
    return RenderRasterTexture::ClassNameNBX();
}

bool RenderRasterTexturePainterGL::render(NBX::Engine * engine, const NBX::Shape * shape) {
    auto * gl = dynamic_cast<NBX::EngineGL *>(engine);
    const auto * raster = dynamic_cast<const RenderRasterTexture *>(shape);
    if (!gl || !raster) return false;
    raster->draw(gl);
    return true;
}

NBX_REGISTER_HANDLER_GL(RenderRasterTexturePainterGL)

} // namespace ZMT::CORE
