// Two ways to cut triangles at the borders of a patch. Four clip planes are the plain one. Where planes are
// short, or texture units so few that planes cost some, the triangles are drawn into the stencil buffer
// through a mask texture that is opaque over the patch alone, then drawn where it is marked, and then the
// marks are taken away.

#include <array>

#include <GL/glew.h>

#include <nbx/engine/shapesimplifier.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/state/stencilbuffergl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/texenvgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/gl/texture/textureunitsettinggl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/attribute/clipplane.h>
#include <nbx/scene/attribute/disableshading.h>

#include "core/terrain/frame/terraintexgen.h"
#include "terraintexturedtrianglesshape.h"

namespace ZMT::CORE {

namespace {

using NBX::AttributeScope;
using NBX::SO;

/// Cards with fewer units spend them on clip planes.
constexpr unsigned s_unitsForClipPlanes = 3;
/// One for each side of a patch.
constexpr unsigned s_planes = 4;

/// The scene may hold planes of its own.
bool canUsePlanes(const NBX::EngineGL & engine) {
    return engine.maxTextureUnits() >= s_unitsForClipPlanes &&
           engine.polyAttributeCount(NBX::ClipPlane::ClassNameNBX(), NBX::Engine::PS_Enabled) + s_planes <=
               NBX::ClipPlane::maxPlanes;
}

bool canUseStencil() {
    GLint bits = 0;
    glGetIntegerv(GL_STENCIL_BITS, &bits);
    return bits >= 8;
}

/// Everything inside four planes around the rectangle of `box`.
void paintClipped(NBX::Engine * engine, NBX::PrimitiveQuadTreeGL * tree, const NBX::Bounds & box) {
    static const std::array<SO<NBX::ClipPlane>, s_planes> planes = {new NBX::ClipPlane, new NBX::ClipPlane,
                                                                    new NBX::ClipPlane, new NBX::ClipPlane};
    planes[0]->setPlane({1, 0, 0}, -box.getLLF().x);
    planes[1]->setPlane({-1, 0, 0}, box.getURB().x);
    planes[2]->setPlane({0, 0, 1}, -box.getLLF().z);
    planes[3]->setPlane({0, 0, -1}, box.getURB().z);
    const AttributeScope west(engine, planes[0].get()), east(engine, planes[1].get());
    const AttributeScope south(engine, planes[2].get()), north(engine, planes[3].get());
    engine->paint(tree);
}

/// Four by four texels: white in the middle, around it red and transparent.
SO<NBX::MemoryImage> newMaskImage() {
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(4, 4, NBX::LS_RGBA));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) {
            const bool isCentral = (x == 1 || x == 2) && (y == 1 || y == 2);
            image->setColor(x, y, isCentral ? NBX::Color::white : NBX::Color(1.0F, 0.0F, 0.0F, 0.0F));
        }
    return image;
}

/// From coordinates in x and z to those of the mask, so that the middle covers the box.
NBX::Matrix4x4Base<double> maskMatrix(const NBX::Bounds & box) {
    const double sx = 0.5 / box.diagonal().x, sz = 0.5 / box.diagonal().z;
    return NBX::Matrix4x4Base<double>({sx, 0, 0, 0.25 - box.getLLF().x * sx, //
                                       0, sz, 0, 0.25 - box.getLLF().z * sz, //
                                       0, 0, 1, 0,                           //
                                       0, 0, 0, 1});
}

/// What draws nothing but the stencil, inside a box alone. Made once.
struct MaskAttributes {
    SO<NBX::ImageTexture2DGL> texture{new NBX::ImageTexture2DGL(
        newMaskImage(), NBX::TextureGL::WM_ClampToEdge, NBX::TextureGL::WM_ClampToEdge,
        NBX::TextureGL::FM_Nearest, NBX::TextureGL::FM_Nearest)};
    SO<NBX::TexEnvGL> texEnv{new NBX::TexEnvGL(NBX::TexEnvGL::M_Replace)};
    SO<NBX::TextureUnitSettingGL> unit{
        new NBX::TextureUnitSettingGL(0, texture.get(), texEnv.get(), terrainTexGen().get())};
    SO<NBX::DisableShading> unlit{new NBX::DisableShading};
    SO<NBX::ColorBufferGL> noColor{NBX::ColorBufferGL::newLock(false, false, false, false)};
    SO<NBX::ColorBufferGL> alphaTest{NBX::ColorBufferGL::newAlphaTest(true, GL_GEQUAL, 0.5)};
};

/// All of OpenGL's state, with textures and programs off, until the end of the scope.
class PlainStateGL {
public:
    explicit PlainStateGL(unsigned units) {
        if (hasPrograms()) glGetIntegerv(GL_CURRENT_PROGRAM, &program_);
        glPushAttrib(GL_ALL_ATTRIB_BITS);
        if (hasPrograms()) glUseProgram(0);
        for (unsigned unit = units; unit-- > 0;) {
            glActiveTexture(GL_TEXTURE0 + unit);
            for (const GLenum target : {GL_TEXTURE_1D, GL_TEXTURE_2D, GL_TEXTURE_3D, GL_TEXTURE_CUBE_MAP})
                glDisable(target);
        }
    }
    ~PlainStateGL() {
        glPopAttrib();
        if (hasPrograms()) glUseProgram(GLuint(program_));
    }
    PlainStateGL(const PlainStateGL &) = delete;
    PlainStateGL & operator=(const PlainStateGL &) = delete;

private:
    /// Cards with so few units may be too old for them.
    static bool hasPrograms() { return glUseProgram != nullptr; }

    GLint program_ = 0;
};

/// Draws the triangles into the stencil buffer alone, where they are inside the mask.
void paintMasked(NBX::EngineGL * engine, NBX::PrimitiveQuadTreeGL * tree, const MaskAttributes & mask,
                 NBX::StencilBufferGL * stencil) {
    const PlainStateGL plain(engine->textureCoordinateSets());
    const AttributeScope unlit(engine, mask.unlit.get());
    const AttributeScope noColor(engine, mask.noColor.get()), alphaTest(engine, mask.alphaTest.get());
    const AttributeScope unit(engine, mask.unit.get());
    const AttributeScope stencilScope(engine, stencil);
    engine->paint(tree);
}

/// The number that marks what one call may draw.
int nextReference() {
    static unsigned char reference = 0;
    if (++reference == 0) reference = 1;
    return reference;
}

/// Marks the pixels inside the box, draws the triangles there, and takes the marks away, so that a number
/// that comes again finds none of its own.
void paintStencilled(NBX::EngineGL * engine, NBX::PrimitiveQuadTreeGL * tree, const NBX::Bounds & box) {
    static const MaskAttributes mask;
    static const SO<NBX::DepthBufferGL> keepDepth(new NBX::DepthBufferGL(
        NBX::DepthBufferGL::O_Write | NBX::DepthBufferGL::O_Function | NBX::DepthBufferGL::O_All, false, true,
        GL_LEQUAL, 0, 1));
    mask.texture->setMatrix(maskMatrix(box));
    const int reference = nextReference();
    const SO<NBX::StencilBufferGL> mark(new NBX::StencilBufferGL(
        NBX::StencilBufferGL::O_Test, GL_ALWAYS, reference, 0xff, GL_KEEP, GL_KEEP, GL_REPLACE));
    const SO<NBX::StencilBufferGL> marked(new NBX::StencilBufferGL(
        NBX::StencilBufferGL::O_Test, GL_EQUAL, reference, 0xff, GL_KEEP, GL_KEEP, GL_KEEP));
    const SO<NBX::StencilBufferGL> clear(new NBX::StencilBufferGL(NBX::StencilBufferGL::O_Test, GL_ALWAYS, 0,
                                                                  0xff, GL_KEEP, GL_REPLACE, GL_REPLACE));

    const bool testsDepth = glIsEnabled(GL_DEPTH_TEST) == GL_TRUE;
    paintMasked(engine, tree, mask, mark.get());
    // The marks were drawn with the depth; where there is no test they must not get one now.
    const AttributeScope depth(engine, testsDepth ? keepDepth.get() : nullptr);
    {
        const AttributeScope stencil(engine, marked.get());
        engine->paint(tree);
    }
    paintMasked(engine, tree, mask, clear.get());
}

/// In fact it paints: the triangles over one patch, cut exactly at its border, so that neighbouring patches
/// draw their own parts of a triangle each under its own textures.
class TerrainTexturedTrianglesShapeSimplifier : public NBX::ShapeSimplifier {
    NBX_TEMPLATE_CLASS(TerrainTexturedTrianglesShapeSimplifier, NBX::ShapeSimplifier)
public:
    NBX::ID target() const override { return TerrainTexturedTrianglesShape::ClassNameNBX(); }

    bool simplify(NBX::Engine * engine, const NBX::Shape * shape) override {
        auto * gl = dynamic_cast<NBX::EngineGL *>(engine);
        const auto * part = dynamic_cast<const TerrainTexturedTrianglesShape *>(shape);
        NBX_CHECK(gl, L"no engine");
        if (!gl || !part) return false;
        const NBX::Bounds box = part->boundingBox();
        if (!(box.diagonal().x > 0.0 && box.diagonal().z > 0.0)) return true;

        const AttributeScope texGen(engine, terrainTexGen().get());
        const AttributeScope area(engine, part->area());
        if (!canUsePlanes(*gl) && canUseStencil())
            paintStencilled(gl, part->tree(), box);
        else
            paintClipped(gl, part->tree(), box);
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(TerrainTexturedTrianglesShapeSimplifier)

} // namespace ZMT::CORE
