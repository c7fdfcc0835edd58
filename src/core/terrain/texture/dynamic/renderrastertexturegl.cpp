// A texture is asked for patches over its box, or over the terrain where it has none; the view is that of the
// picture, so that its texels are as fine as the screen shows them. Places are sent relative to one in view,
// since single precision would not do for coordinates of countries.

#include "renderrastertexturegl.h"

#include <GL/glew.h>

#include <nbx/engine/modelmatrixscope.h>
#include <nbx/gl/program/programobject.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/view/viewport.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>

#include "trapezoidprogramsgl.h"

namespace ZMT::CORE {

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

/// x, z and height to x, height and z.
constexpr Matrix fromPlan({1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1});

/// From coordinates relative to `origin` to (x, z) of the plan.
Matrix fromOrigin(const Point & origin) {
    return Matrix::translation({origin.x, origin.z, 0.0});
}

/// Draws a convex loop in plan, relative to `origin`, as the programs take it.
void drawPlan(const TrapezoidPass::Loop & loop, const Point & origin) {
    glBegin(GL_POLYGON);
    for (const Point & p : loop) {
        glMultiTexCoord4d(GL_TEXTURE0, p.x - origin.x, p.z - origin.z, 0.0, 1.0);
        glVertex3d(p.x - origin.x, p.z - origin.z, 0.0);
    }
    glEnd();
}

/// To the coordinates that `drawPlan` gives.
void setTextureMatrix(const NBX::TextureGL & texture, const Point & origin) {
    const auto matrix = (texture.getMatrix() * fromOrigin(origin)).columns();
    glMatrixMode(GL_TEXTURE);
    glLoadMatrixd(matrix.data());
}

/// Colours are those of the texture of the first unit. Within a `TexturingGuard`.
class FixedTexturing {
public:
    explicit FixedTexturing(const NBX::EngineGL & engine) {
        NBX::GL2::ProgramObject::useNone();
        glDisable(GL_LIGHTING);
        for (unsigned unit = engine.maxTextureUnits(); unit-- > 0;) {
            glActiveTexture(GL_TEXTURE0 + unit);
            for (const GLenum state :
                 {GL_TEXTURE_2D, GL_TEXTURE_GEN_S, GL_TEXTURE_GEN_T, GL_TEXTURE_GEN_R, GL_TEXTURE_GEN_Q})
                glDisable(state);
        }
        glEnable(GL_TEXTURE_2D);
        glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    }
};

/// The view in force, for a shape that stands in a scene by itself.
void setFromEngine(TrapezoidPass & pass, NBX::EngineGL & engine) {
    pass.view = engine.viewInfo();
    pass.engine = &engine;
    const NBX::Area area = engine.viewport() ? engine.viewport()->getArea() : NBX::Area();
    pass.viewportWidth = area.getWidth();
    pass.viewportHeight = area.getHeight();
    pass.textureError = TerrainPainterGLSettings::getTextureError();
}

} // namespace

RenderRasterTexture::RenderRasterTexture(const NBX::SO<TerrainTexture> & texture)
    : Shape(true), texture_(texture) {
    NBX_CHECK(texture, L"no texture");
}

NBX::Bounds RenderRasterTexture::boundingBox() const {
    const NBX::Bounds box = texture_ ? texture_->boundingBox() : NBX::Bounds();
    return box.isDefined() ? areaOf(box, NBX::Bounds(Point(0.0, 0.0, 0.0))) : box;
}

NBX::Bounds RenderRasterTexture::area(const NBX::Bounds & terrain) const {
    const NBX::Bounds own = texture_->boundingBox();
    return areaOf(own, own.isDefined() && !terrain.isDefined() ? boundingBox() : terrain);
}

RenderRasterTexture::Pieces RenderRasterTexture::request(TrapezoidPass & pass) const {
    Pieces pieces;
    if (!pass.view) return pieces;
    patches_.walk(
        area(pass.terrain), *pass.view,
        [&](const GeometryPatch & patch, const Point & eye) {
            return texture_->refine(&patch, pass.view.get(), pass.viewportWidth, pass.viewportHeight, eye,
                                    pass.textureError, pass.inMotion);
        },
        [&](const GeometryPatch & patch, const Point & eye) {
            auto texture = texture_->request(&patch, pass.engine, pass.view.get(), pass.viewportWidth,
                                             pass.viewportHeight, 1.0, eye, pass.textureError, pass.inMotion,
                                             pass.asynchronous, pass.isIncomplete);
            if (texture) pieces.push_back({patch.boundingBox(), std::move(texture)});
        });
    return pieces;
}

NBX::SO<NBX::Shape> RenderRasterTexture::asked(TrapezoidPass & pass) const {
    if (!texture_) return nullptr;
    NBX::SO<RenderRasterTexture> shape(new RenderRasterTexture(texture_));
    shape->asked_ = request(pass);
    return shape;
}

void RenderRasterTexture::draw(NBX::EngineGL * engine) const {
    NBX_CHECK(engine, L"no engine");
    if (!engine || !texture_) return;
    if (TrapezoidPass * pass = TrapezoidPass::current()) {
        drawInto(*pass, *engine, asked_ ? *asked_ : request(*pass));
        return;
    }
    TrapezoidPass pass;
    setFromEngine(pass, *engine);
    drawFlat(*engine, request(pass));
}

void RenderRasterTexture::drawInto(const TrapezoidPass & pass, NBX::EngineGL & engine,
                                   const Pieces & pieces) {
    const TexturingGuard guard;
    const TrapezoidProgramsGL::TrapMatScope scope(pass.trapMat);
    for (const Piece & piece : pieces) {
        const TrapezoidPass::Loop loop = pass.visiblePlan(piece.box);
        if (loop.size() < 3) continue;
        const Point origin = loop.front();
        if (!TrapezoidProgramsGL::useTextured(pass.trapMat * fromOrigin(origin))) return;
        piece.texture->bind(&engine);
        setTextureMatrix(*piece.texture, origin);
        drawPlan(loop, origin);
    }
}

void RenderRasterTexture::drawFlat(NBX::EngineGL & engine, const Pieces & pieces) {
    const TexturingGuard guard;
    const FixedTexturing texturing(engine);
    for (const Piece & piece : pieces) {
        const Point origin = piece.box.getLLF(), end = piece.box.getURB();
        piece.texture->bind(&engine);
        setTextureMatrix(*piece.texture, origin);
        const NBX::ModelMatrixScope place(&engine, Matrix::translation({origin.x, 0.0, origin.z}) * fromPlan);
        drawPlan({origin, Point(end.x, 0.0, origin.z), end, Point(origin.x, 0.0, end.z)}, origin);
    }
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
