// Glyphs are drawn from signed distance fields (C. Green, "Improved Alpha-Tested Magnification for Vector
// Textures and Special Effects", 2007). One field serves all sizes, places between pixels, views across the
// ground, and the halo, which is where the distance lies a little below that of the edge. Other ways were
// left aside: bitmaps of the very size would be drawn at whole pixels, where labels jump while the view
// moves, or be blurred between them; triangles of outlines flicker at the size of labels, where strokes are
// about as wide as a pixel.
//
// The share of a pixel that a glyph covers is the mean of four places within it (a rotated grid), each of
// which stands for a square of half a pixel's side that the edge, nearly straight there, cuts. So strokes
// that are thinner than a pixel keep their weight. The places of one glyph never reach into the field of its
// neighbour in the texture. From 5 pixels down to 3, where nothing can be read, text fades away.
//
// Corners are sent in view coordinates, relative to the eye, with the double precision of the scene behind
// them; those of upright text are all at its place, with a distance in pixels that the vertex stage adds.

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

#include <GL/glew.h>

#include "glyphatlasgl.h"
#include <nbx/engine/shapepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/program/fragmentshaderobject.h>
#include <nbx/gl/program/programobject.h>
#include <nbx/gl/program/samplervariable.h>
#include <nbx/gl/program/vertexshaderobject.h>
#include <nbx/object/errorhandler.h>
#include <nbx/text/fontface.h>
#include <nbx/text/textshape.h>

namespace NBX {

namespace {

using Vector = Vector3Base<double>;

static_assert(FontFace::fieldSize == 64 && FontFace::fieldReach == 16, "the shader knows them");

constexpr const char * s_vertexStage = R"(
uniform vec2 clipOfPixel;
varying vec4 field;

void main() {
    gl_Position = gl_ProjectionMatrix * gl_Vertex;
    gl_Position.xy += clipOfPixel * gl_MultiTexCoord1.xy * gl_Position.w;
    gl_ClipVertex = gl_Vertex;
    gl_FrontColor = gl_BackColor = gl_Color;
    gl_TexCoord[0] = gl_MultiTexCoord0;
    field = gl_MultiTexCoord2;
}
)";

constexpr const char * s_fragmentStage = R"(
uniform sampler2D glyphs;
uniform vec2 sizeOfTexel;
uniform float widening; // in texels
varying vec4 field;

// From the edge, in texels, above 0 within.
float distanceAt(vec2 place) {
    place = clamp(place, field.xy, field.zw) * sizeOfTexel;
    return (texture2D(glyphs, place).a * 255.0 - 128.0) / 8.0;
}

void main() {
    vec2 place = gl_TexCoord[0].xy;
    vec2 right = dFdx(place), up = dFdy(place);
    float texels = max(sqrt(abs(right.x * up.y - right.y * up.x)), 0.001); // in a pixel's side
    float wider = min(widening, 15.5 - 0.25 * texels);
    float share = 0.0;
    for (int i = 0; i < 4; ++i) {
        vec2 at = i == 0 ? vec2(0.125, 0.375) : i == 1 ? vec2(0.375, -0.125)
                : i == 2 ? vec2(-0.125, -0.375) : vec2(-0.375, 0.125);
        float away = distanceAt(place + at.x * right + at.y * up) + wider;
        share += clamp(0.5 + away / (0.5 * texels), 0.0, 1.0);
    }
    float alpha = gl_Color.a * share * 0.25 * (1.0 - smoothstep(64.0 / 5.0, 64.0 / 3.0, texels));
    if (alpha <= 0.0) discard;
    gl_FragColor = vec4(gl_Color.rgb, alpha);
}
)";

/// What the glyphs of all texts are drawn by.
struct TextProgram {
    SO<GL2::ProgramObject> program{new GL2::ProgramObject};
    SO<GL2::UniformVariable<std::array<float, 2>>> clipOfPixel{
        new GL2::UniformVariable<std::array<float, 2>>("clipOfPixel")};
    SO<GL2::UniformVariable<std::array<float, 2>>> sizeOfTexel{
        new GL2::UniformVariable<std::array<float, 2>>("sizeOfTexel")};
    SO<GL2::UniformVariable<float>> widening{new GL2::UniformVariable<float>("widening")};
    SO<GL2::SamplerVariable> glyphs{new GL2::SamplerVariable("glyphs")};

    TextProgram() {
        program->attach(SO<GL2::ShaderObject>(new GL2::VertexShaderObject(s_vertexStage)));
        program->attach(SO<GL2::ShaderObject>(new GL2::FragmentShaderObject(s_fragmentStage)));
        for (const SO<GL2::BaseUniformVariable> & variable :
             {SO<GL2::BaseUniformVariable>(clipOfPixel), SO<GL2::BaseUniformVariable>(sizeOfTexel),
              SO<GL2::BaseUniformVariable>(widening), SO<GL2::BaseUniformVariable>(glyphs)})
            program->attach(variable);
    }
    static TextProgram & instance() {
        static auto * program = new TextProgram;
        return *program;
    }
};

struct Corner {
    float inView[3];
    float place[2];  ///< in the texture, in texels
    float pixels[2]; ///< away from the place in the view
    float field[4];  ///< lower left and upper right of what may be read
};

/// What `TextShape` says of its place, as corners of glyphs need it.
struct Frame {
    Vector origin, alongX, alongY; ///< in view coordinates
    double pixels;                 ///< of an em; 0 for text on the ground

    Frame(const Matrix4x4Base<double> & modelView, const TextShape & shape)
        : origin(modelView * shape.getPosition()),
          pixels(shape.getSizeUnit() == TextShape::SU_Pixels ? shape.getSize() : 0.0) {
        if (pixels > 0.0) return;
        alongX = modelView.transformDirection({shape.getSize(), 0.0, 0.0});
        alongY = modelView.transformDirection({0.0, 0.0, shape.getSize()});
    }
    /// How many texels beyond its ink a glyph may show, widened by a part of an em: a pixel is covered in
    /// part up to two thirds of its side away from the edge. Of text on the ground the size of pixels is not
    /// known.
    double reach(double widening) const {
        constexpr double most = FontFace::fieldReach - 0.5;
        return pixels > 0.0 ? std::min(most, (widening + 1.0 / pixels) * FontFace::fieldSize) : most;
    }
    /// Of the point `x`, `y` of the layout.
    void place(double x, double y, Corner & corner) const {
        const Vector p = origin + alongX * x + alongY * y;
        for (unsigned axis = 0; axis < 3; ++axis)
            corner.inView[axis] = float(p[axis]);
        corner.pixels[0] = float(x * pixels);
        corner.pixels[1] = float(y * pixels);
    }
};

struct PlacedGlyph {
    double x, y; ///< its origin in the layout
    GlyphAtlasGL::Place place;
};

/// False when the atlas is full before all glyphs are in it.
bool placeGlyphs(const TextShape & shape, GlyphAtlasGL & atlas, std::vector<PlacedGlyph> & glyphs) {
    glyphs.clear();
    glyphs.reserve(shape.layout().glyphs().size());
    bool isComplete = true;
    for (const TextLayout::Glyph & glyph : shape.layout().glyphs()) {
        GlyphAtlasGL::Place place;
        if (!atlas.find(glyph.number, place))
            isComplete = false;
        else if (place.width > 0)
            glyphs.push_back({glyph.x, glyph.y, place});
    }
    return isComplete;
}

/// The corners of a glyph that is shown up to `reach` texels beyond its ink.
void appendCorners(const PlacedGlyph & glyph, const Frame & frame, double reach,
                   std::vector<Corner> & corners) {
    const GlyphAtlasGL::Place & place = glyph.place;
    const double inset = FontFace::fieldReach - reach;
    for (const auto & [isRight, isTop] :
         {std::pair(0, 0), std::pair(1, 0), std::pair(1, 1), std::pair(0, 1)}) {
        const double x = isRight ? place.width - inset : inset, y = isTop ? place.height - inset : inset;
        // Only the middles of the field's own texels are mixed.
        Corner corner = {{},
                         {float(place.x + x), float(place.y + y)},
                         {},
                         {float(place.x) + 0.5F, float(place.y) + 0.5F, float(place.x + place.width) - 0.5F,
                          float(place.y + place.height) - 0.5F}};
        frame.place(glyph.x + (place.left + x) / FontFace::fieldSize,
                    glyph.y + (place.bottom + y) / FontFace::fieldSize, corner);
        corners.push_back(corner);
    }
}

/// The state of OpenGL for glyphs; at the end of the scope it is as it was before.
class TextState {
public:
    TextState(EngineGL * engine, const GlyphAtlasGL & atlas)
        : programBefore_(glGetHandleARB(GL_PROGRAM_OBJECT_ARB)) {
        glPushClientAttrib(GL_CLIENT_VERTEX_ARRAY_BIT);
        glPushAttrib(GL_COLOR_BUFFER_BIT | GL_CURRENT_BIT | GL_DEPTH_BUFFER_BIT | GL_ENABLE_BIT |
                     GL_POLYGON_BIT);
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &textureBefore_);
        atlas.texture()->bind(engine);
        setDrawing();
        glBindBuffer(GL_ARRAY_BUFFER, 0);
        useProgram(*atlas.texture());
    }
    ~TextState() {
        glUseProgramObjectARB(programBefore_);
        glBindTexture(GL_TEXTURE_2D, GLuint(textureBefore_));
        glPopAttrib();
        glPopClientAttrib();
    }
    TextState(const TextState &) = delete;
    TextState & operator=(const TextState &) = delete;

private:
    static void setDrawing() {
        // Whoever blends already knows how its target is to be blended.
        if (!glIsEnabled(GL_BLEND)) {
            glEnable(GL_BLEND);
            glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
        }
        glDepthMask(GL_FALSE);
        glDisable(GL_CULL_FACE);
        glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    }
    static void useProgram(const Texture2DGL & texture) {
        TextProgram & text = TextProgram::instance();
        GLint viewport[4] = {0, 0, 1, 1}, unit = GL_TEXTURE0;
        glGetIntegerv(GL_VIEWPORT, viewport);
        glGetIntegerv(GL_ACTIVE_TEXTURE, &unit);
        text.clipOfPixel->setValue(
            {2.0F / float(std::max(1, viewport[2])), 2.0F / float(std::max(1, viewport[3]))});
        text.sizeOfTexel->setValue({1.0F / float(texture.getWidth()), 1.0F / float(texture.getHeight())});
        text.glyphs->setValue(unit - GL_TEXTURE0);
        text.program->use();
    }

    GLhandleARB programBefore_;
    GLint textureBefore_ = 0;
};

void setTexCoords(GLenum unit, GLint components, const float * first) {
    glClientActiveTexture(unit);
    glTexCoordPointer(components, GL_FLOAT, sizeof(Corner), first);
    glEnableClientState(GL_TEXTURE_COORD_ARRAY);
}

void drawCorners(const std::vector<Corner> & corners) {
    const Corner & first = corners.front();
    glVertexPointer(3, GL_FLOAT, sizeof(Corner), first.inView);
    glEnableClientState(GL_VERTEX_ARRAY);
    setTexCoords(GL_TEXTURE0, 2, first.place);
    setTexCoords(GL_TEXTURE1, 2, first.pixels);
    setTexCoords(GL_TEXTURE2, 4, first.field);
    glDrawArrays(GL_QUADS, 0, GLsizei(corners.size()));
}

/// Within the scope of a `TextState`; `widening` is in em.
void drawGlyphs(const std::vector<PlacedGlyph> & glyphs, const Frame & frame, const Color & color,
                double widening) {
    std::vector<Corner> corners;
    corners.reserve(glyphs.size() * 4);
    const double reach = frame.reach(widening);
    for (const PlacedGlyph & glyph : glyphs)
        appendCorners(glyph, frame, reach, corners);
    TextProgram & text = TextProgram::instance();
    text.widening->setValue(float(widening * FontFace::fieldSize));
    text.program->updateVariables();
    glColor4fv(color.data());
    drawCorners(corners);
}

void draw(EngineGL * engine, const TextShape & shape) {
    const SO<FontFace> font = shape.font();
    if (!font || shape.layout().glyphs().empty()) return;
    GlyphAtlasGL & atlas = GlyphAtlasGL::of(font);
    std::vector<PlacedGlyph> glyphs;
    if (!placeGlyphs(shape, atlas, glyphs)) {
        atlas.clear();
        placeGlyphs(shape, atlas, glyphs);
    }
    if (glyphs.empty()) return;
    const Frame frame(engine->modelViewMatrix(), shape);
    const TextState state(engine, atlas);
    const double halo = std::min(shape.getHaloWidth() / shape.getSize(), TextShape::largestHalo);
    if (halo > 0.0) drawGlyphs(glyphs, frame, shape.getHaloColor(), halo);
    drawGlyphs(glyphs, frame, shape.getColor(), 0.0);
}

class TextShapePainter : public ShapePainter {
public:
    ID target() const override { return TextShape::ClassNameNBX(); }
    bool render(Engine * engine, const Shape * shape) override {
        auto * gl = dynamic_cast<EngineGL *>(engine);
        const auto * text = dynamic_cast<const TextShape *>(shape);
        NBX_CHECK(gl, L"no engine");
        if (!gl || !text) return false;
        draw(gl, *text);
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(TextShapePainter)

} // namespace NBX
