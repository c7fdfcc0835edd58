// On the card: the picture is copied into a texture that the driver reduces by averages; a shader divides the
// colours of each level, in the corner of the canvas that the level takes, and the corner is copied into the
// level. It takes the steps of `VectorPicture`, which does the same in main memory: that takes a sixth of the
// processor time where the card is the processor.

#include "vectortextureimagegl.h"

#include <algorithm>
#include <array>
#include <bit>
#include <map>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/program/fragmentshaderobject.h>
#include <nbx/gl/program/programobject.h>
#include <nbx/gl/program/samplervariable.h>
#include <nbx/gl/program/vertexshaderobject.h>
#include <nbx/gl/texture/imageopengltool.h>

#include "vectorsamplesgl.h"
#include "vectortexturetables.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(DrawnLevelsTextureGL, NBX::Texture2DGL)
NBX_CLASS_IMPL(ImageLevelsTextureGL, NBX::ImageTexture2DGL)

namespace {

bool s_software = true;

constexpr const char * s_vertexSource = R"(#version 130
void main() { gl_Position = gl_Vertex; }
)";

constexpr const char * s_fragmentSource = R"(#version 130
uniform sampler2D picture;
uniform int level;
void main() {
    vec4 color = texelFetch(picture, ivec2(gl_FragCoord.xy), level);
    float alpha = color.a;
    vec2 place = gl_FragCoord.xy / vec2(textureSize(picture, level));
    for (int coarser = 3; coarser > 0 && alpha <= 0.0; --coarser) {
        vec4 about = textureLod(picture, place, float(level + coarser));
        if (about.a <= 0.0) break;
        color = about;
    }
    gl_FragColor = vec4(color.a > 0.0 ? min(color.rgb / color.a, 1.0) : vec3(1.0), alpha);
}
)";

/// Lines have sharp edges, which averages of texels as large as pixels smear over two or three pixels. With
/// texels of 0.55 pixels what the filter lays over each other is as wide as one pixel.
constexpr float s_sharpening = -0.85F;

/// Of the texture that is bound.
void sharpen() {
    glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_LOD_BIAS, s_sharpening);
}

/// What the copies need; made by the first one.
struct Copier {
    std::map<unsigned, NBX::SO<NBX::Texture2DGL>> pictures; ///< of canvases, by their width
    NBX::SO<NBX::GL2::ProgramObject> program;
    NBX::SO<NBX::GL2::UniformVariable<int>> level;
    bool isUsable = true;
};

/// Never destroyed itself: textures may be drawn while libraries unload.
Copier & copier() {
    static auto & instance = *new Copier;
    return instance;
}

void makeProgram(Copier & copier) {
    copier.level = new NBX::GL2::UniformVariable<int>("level");
    copier.program = new NBX::GL2::ProgramObject;
    copier.program->attach(NBX::SO<NBX::GL2::ShaderObject>(new NBX::GL2::VertexShaderObject(s_vertexSource)));
    copier.program->attach(
        NBX::SO<NBX::GL2::ShaderObject>(new NBX::GL2::FragmentShaderObject(s_fragmentSource)));
    copier.program->attach(
        NBX::SO<NBX::GL2::BaseUniformVariable>(new NBX::GL2::SamplerVariable("picture", 0)));
    copier.program->attach(NBX::SO<NBX::GL2::BaseUniformVariable>(copier.level.get()));
}

/// Takes the picture of the canvas; false where it cannot be divided on the card.
bool takePicture(Copier & copier, NBX::PBufferCanvasGL & canvas) {
    if (!copier.isUsable || !canvas.engine() || !canvas.engine()->isVersion(3, 0)) return false;
    if (!copier.program) makeProgram(copier);
    // One size is that of the patches, another one that of the view.
    if (copier.pictures.size() > 1 && !copier.pictures.contains(canvas.getWidth())) copier.pictures.clear();
    NBX::SO<NBX::Texture2DGL> & picture = copier.pictures[canvas.getWidth()];
    if (picture) return canvas.updateTexture(picture.get());
    // Little is left of a thin line in the coarser levels.
    picture = canvas.newTexture(GL_RGBA16, true);
    // The shader names whole levels; between two of them the software renderer would look at both.
    if (picture) picture->setMinFilter(NBX::TextureGL::FM_LinearMipmapNearest);
    return bool(picture);
}

void drawLevel(const Copier & copier, unsigned level, unsigned width, unsigned height) {
    copier.level->setValue(static_cast<int>(level));
    copier.program->updateVariables();
    glViewport(0, 0, GLsizei(width), GLsizei(height));
    glRecti(-1, -1, 1, 1);
    glCopyTexSubImage2D(GL_TEXTURE_2D, GLint(level), 0, 0, 0, 0, GLsizei(width), GLsizei(height));
}

/// From the picture into the levels; the texture is bound to the second unit, on which it is not sampled.
void drawLevels(const Copier & copier, NBX::PBufferCanvasGL & canvas, const DrawnLevelsTextureGL & texture) {
    glActiveTexture(GL_TEXTURE0);
    copier.pictures.at(canvas.getWidth())->bind(canvas.engine().get());
    glActiveTexture(GL_TEXTURE1);
    texture.bind(canvas.engine().get());
    for (const GLenum state :
         {GL_DEPTH_TEST, GL_BLEND, GL_ALPHA_TEST, GL_STENCIL_TEST, GL_SCISSOR_TEST, GL_CULL_FACE, GL_DITHER})
        glDisable(state);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    for (unsigned level = 0; level < texture.levels(); ++level)
        drawLevel(copier, level, std::max(texture.getWidth() >> level, 1U),
                  std::max(texture.getHeight() >> level, 1U));
}

bool copyPicture(NBX::PBufferCanvasGL & canvas, const DrawnLevelsTextureGL & texture) {
    Copier & shared = copier();
    if (!takePicture(shared, canvas) || !canvas.makeContextCurrent()) return false;
    glPushAttrib(GL_ALL_ATTRIB_BITS);
    shared.isUsable = shared.program->use();
    if (shared.isUsable) drawLevels(shared, canvas, texture);
    NBX::GL2::ProgramObject::useNone();
    glPopAttrib();
    // The other contexts see the texels only when this one has got to them.
    glFlush();
    canvas.releaseContext();
    return shared.isUsable;
}

/// Whether the card of the canvas is the processor.
bool isSoftware(const NBX::PBufferCanvasGL & canvas) {
    return canvas.engine() && canvas.engine()->rendererName().starts_with("llvmpipe");
}

bool readPicture(NBX::PBufferCanvasGL & canvas, NBX::MemoryImage & image) {
    glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
    const bool isEven = NBX::ImageOpenGLTool::setPixelStoreModes(&image, true);
    if (isEven)
        glReadPixels(0, 0, image.width(), image.height(), GL_RGBA, GL_UNSIGNED_BYTE,
                     static_cast<NBX::Image &>(image).lineComponents(0));
    glPopClientAttrib();
    return isEven || canvas.snapshot(&image);
}

bool sendLevels(const VectorPicture::Levels & levels) {
    glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
    bool isSent = true;
    for (std::size_t i = 0; i < levels.size() && isSent; ++i) {
        const NBX::MemoryImage & image = *levels[i];
        isSent = NBX::ImageOpenGLTool::setPixelStoreModes(&image, false);
        if (isSent)
            glTexSubImage2D(GL_TEXTURE_2D, GLint(i), 0, 0, image.width(), image.height(), GL_RGBA,
                            GL_UNSIGNED_BYTE, image.lineComponents(0));
    }
    glPopClientAttrib();
    return isSent;
}

/// Like `copyPicture`, by the processor.
bool sendPicture(NBX::PBufferCanvasGL & canvas, const DrawnLevelsTextureGL & texture) {
    if (!canvas.makeContextCurrent()) return false;
    NBX::MemoryImage image(int(canvas.getWidth()), int(canvas.getHeight()), NBX::LS_RGBA);
    bool isSent = readPicture(canvas, image);
    if (isSent) {
        glPushAttrib(GL_TEXTURE_BIT);
        texture.bind(canvas.engine().get());
        isSent = sendLevels(VectorPicture::levels(image));
        glPopAttrib();
        glFlush();
    }
    canvas.releaseContext();
    return isSent;
}

/// Into `before` where that has the size and the format, else into a new one. Null where that cannot be
/// done.
NBX::SO<NBX::Texture2DGL> copied(NBX::PBufferCanvasGL & canvas, unsigned format,
                                 const NBX::SO<NBX::Texture2DGL> & before) {
    NBX::SO<DrawnLevelsTextureGL> texture = NBX::soCast<DrawnLevelsTextureGL>(before);
    if (!texture || texture->getWidth() != canvas.getWidth() || texture->getInternalFormat() != format)
        texture = new DrawnLevelsTextureGL(canvas.getWidth(), canvas.getHeight(), format);
    const bool byProcessor = s_software && isSoftware(canvas);
    const bool isDrawn = byProcessor ? sendPicture(canvas, *texture) : copyPicture(canvas, *texture);
    return isDrawn ? texture : nullptr;
}

NBX::SO<NBX::MemoryImage> newImage(const NBX::GLCanvas & canvas) {
    return new NBX::MemoryImage(int(canvas.getWidth()), int(canvas.getHeight()), NBX::LS_RGBA);
}

NBX::SO<NBX::Texture2DGL> imageOf(const NBX::MemoryImage & drawn, unsigned format) {
    return new ImageLevelsTextureGL(VectorPicture::levels(drawn), format);
}

} // namespace

NBX::SO<NBX::Texture2DGL> VectorTextureImageGL::draw(NBX::GLCanvas & canvas, unsigned format,
                                                     const VectorSamplesGL * samples) {
    const bool isCopied = dynamic_cast<NBX::PBufferCanvasGL *>(&canvas) != nullptr;
    VectorTextureTables & tables = VectorTextureTables::instance();
    return redraw(canvas, format, isCopied ? tables.takeFromPool(canvas.getWidth(), format) : nullptr,
                  samples);
}

NBX::SO<NBX::Texture2DGL> VectorTextureImageGL::redraw(NBX::GLCanvas & canvas, unsigned format,
                                                       const NBX::SO<NBX::Texture2DGL> & before,
                                                       const VectorSamplesGL * samples) {
    if (auto * pixelBuffer = dynamic_cast<NBX::PBufferCanvasGL *>(&canvas)) {
        canvas.redisplay();
        if (samples) samples->average();
        if (const auto texture = copied(*pixelBuffer, format, before)) return texture;
        const auto image = newImage(canvas);
        return canvas.snapshot(image.get()) ? imageOf(*image, format) : nullptr;
    }
    const auto image = newImage(canvas);
    return canvas.largeScaleSnapshot(image.get()) ? imageOf(*image, format) : nullptr;
}

unsigned VectorTextureImageGL::usualFormat() {
    return GL_RGBA4;
}

bool VectorTextureImageGL::isFormat(unsigned format) {
    static constexpr std::array<unsigned, 9> formats = {
        4, GL_RGBA, GL_RGBA2, GL_RGBA4, GL_RGB5_A1, GL_RGBA8, GL_RGB10_A2, GL_RGBA12, GL_RGBA16};
    return std::find(formats.begin(), formats.end(), format) != formats.end();
}

unsigned VectorTextureImageGL::texelBytes(unsigned format) {
    switch (format) {
    case GL_RGBA2:
    case GL_RGBA4:
    case GL_RGB5_A1:
        return 2;
    case GL_RGBA12:
    case GL_RGBA16:
        return 8;
    default:
        return 4;
    }
}

bool VectorTextureImageGL::canBeDrawnAgain(const NBX::Texture2DGL * texture) {
    return dynamic_cast<const DrawnLevelsTextureGL *>(texture) != nullptr;
}

void VectorTextureImageGL::allowSoftware(bool allow) {
    s_software = allow;
}

void VectorTextureImageGL::release() {
    copier() = Copier();
    VectorSamplesGL::release();
}

DrawnLevelsTextureGL::DrawnLevelsTextureGL(unsigned width, unsigned height, unsigned internalFormat)
    : Texture2DGL(width, height, internalFormat, true) {}

DrawnLevelsTextureGL::~DrawnLevelsTextureGL() = default;

unsigned DrawnLevelsTextureGL::levels() const {
    return static_cast<unsigned>(std::bit_width(std::max(getWidth(), getHeight())));
}

bool DrawnLevelsTextureGL::upload(NBX::EngineGL *, bool isNew, bool) const {
    if (isNew) sharpen();
    for (unsigned level = 0; isNew && level < levels(); ++level)
        glTexImage2D(GL_TEXTURE_2D, GLint(level), GLint(getInternalFormat()),
                     GLsizei(std::max(getWidth() >> level, 1U)), GLsizei(std::max(getHeight() >> level, 1U)),
                     0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    return true;
}

ImageLevelsTextureGL::ImageLevelsTextureGL(const VectorPicture::Levels & levels, unsigned internalFormat)
    : ImageTexture2DGL(levels.front()), levels_(levels) {
    setInternalFormat(internalFormat);
    unrefImageAfterBinding();
}

ImageLevelsTextureGL::~ImageLevelsTextureGL() = default;

bool ImageLevelsTextureGL::upload(NBX::EngineGL * engine, bool isNew, bool) const {
    ImageTexture2DGL::upload(engine, isNew, false);
    if (isNew) sharpen();
    for (std::size_t level = 1; level < levels_.size(); ++level)
        NBX::ImageOpenGLTool::textureImage2D(levels_[level].get(), static_cast<int>(level),
                                             getInternalFormat());
    levels_.clear();
    return true;
}

} // namespace ZMT::CORE
