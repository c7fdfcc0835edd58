#include <nbx/gl/offscreen/rendertexturegl.h>

#include <GL/glew.h>

#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(RenderTextureGL, SharedObj)

namespace {

struct Kind {
    GLenum format, type, internalFormat;
};

/// 0 for a format and type that do not go together.
GLenum internalFormatOf(GLenum format, GLenum type) {
    static constexpr Kind kinds[] = {
        {GL_RGBA, GL_UNSIGNED_BYTE, GL_RGBA8},
        {GL_RGBA, GL_UNSIGNED_SHORT, GL_RGBA16},
        {GL_RGBA, GL_HALF_FLOAT, GL_RGBA16F_ARB},
        {GL_RGBA, GL_FLOAT, GL_RGBA32F_ARB},
        {GL_RGB, GL_UNSIGNED_BYTE, GL_RGB8},
        {GL_RGB, GL_UNSIGNED_SHORT, GL_RGB16},
        {GL_RGB, GL_HALF_FLOAT, GL_RGB16F_ARB},
        {GL_RGB, GL_FLOAT, GL_RGB32F_ARB},
        {GL_RG, GL_UNSIGNED_BYTE, GL_RG8},
        {GL_RG, GL_UNSIGNED_SHORT, GL_RG16},
        {GL_RG, GL_HALF_FLOAT, GL_RG16F},
        {GL_RG, GL_FLOAT, GL_RG32F},
        {GL_RED, GL_UNSIGNED_BYTE, GL_R8},
        {GL_RED, GL_UNSIGNED_SHORT, GL_R16},
        {GL_RED, GL_HALF_FLOAT, GL_R16F},
        {GL_RED, GL_FLOAT, GL_R32F},
        {GL_DEPTH_COMPONENT, GL_UNSIGNED_SHORT, GL_DEPTH_COMPONENT16},
        {GL_DEPTH_COMPONENT, GL_FLOAT, GL_DEPTH_COMPONENT32F},
    };
    for (const Kind & kind : kinds)
        if (kind.format == format && kind.type == type) return kind.internalFormat;
    return 0;
}

/// Makes the texels, and leaves the texture that is bound as it is.
void makeName(EngineGL * engine, const Texture2DGL & texture) {
    GLint before = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &before);
    texture.bind(engine);
    glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(before));
}

} // namespace

RenderTextureGL::RenderTextureGL(EngineGL * engine, unsigned width, unsigned height, unsigned type,
                                 unsigned format, bool mipmaps)
    : type_(type), format_(format) {
    const GLenum internalFormat = internalFormatOf(format, type);
    NBX_CHECK(engine, L"no engine");
    NBX_CHECK(width > 0 && height > 0, L"empty texture");
    NBX_CHECK(internalFormat != 0, L"no texture has the type " << type << L" and the format " << format);
    if (!engine || width == 0 || height == 0 || internalFormat == 0) return;
    texture_ = new Texture2DGL(width, height, internalFormat, mipmaps);
    if (type == GL_FLOAT || type == GL_HALF_FLOAT || format == GL_DEPTH_COMPONENT) {
        texture_->setMinFilter(TextureGL::FM_Nearest);
        texture_->setMagFilter(TextureGL::FM_Nearest);
    }
    makeName(engine, *texture_);
}

void RenderTextureGL::attachTo(FrameBufferObjectGL * target, unsigned index) const {
    NBX_CHECK(target, L"no frame buffer object");
    if (!target || !texture_) return;
    if (format_ == GL_DEPTH_COMPONENT)
        target->attachDepthTexture(texture_, GL_TEXTURE_2D, texture_->name());
    else
        target->attachColorTexture(index, texture_, GL_TEXTURE_2D, texture_->name());
}

} // namespace NBX
