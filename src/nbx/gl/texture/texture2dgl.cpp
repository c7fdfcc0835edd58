#include <nbx/gl/texture/texture2dgl.h>

#include <algorithm>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>

namespace NBX {

NBX_CLASS_IMPL(Texture2DGL, TextureGL)

namespace {

bool isOneOf(unsigned value, std::initializer_list<unsigned> values) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

} // namespace

Texture2DGL::Texture2DGL(bool enabled) : TextureGL(enabled) {}

static_assert(Texture2DGL::IF_Luminance32F == GL_LUMINANCE32F_ARB &&
              Texture2DGL::IF_Luminance16F == GL_LUMINANCE16F_ARB);

Texture2DGL::Texture2DGL(unsigned width, unsigned height, unsigned internalFormat, bool mipmaps)
    : TextureGL(true), width_(width), height_(height), internalFormat_(internalFormat) {
    NBX_CHECK(width > 0 && height > 0, L"empty texture");
    setWrap(WM_ClampToEdge);
    setMinFilter(mipmaps ? FM_LinearMipmapLinear : FM_Linear);
}

Texture2DGL::~Texture2DGL() = default;

void Texture2DGL::setInternalFormat(unsigned internalFormat) {
    if (internalFormat == internalFormat_) return;
    internalFormat_ = internalFormat;
    modified();
}

void Texture2DGL::setTextureSize(unsigned width, unsigned height) const {
    width_ = width;
    height_ = height;
}

unsigned Texture2DGL::target() const {
    return GL_TEXTURE_2D;
}
TextureGL::Channels Texture2DGL::channels() const {
    return channelsOf(internalFormat_);
}

TextureGL::Channels Texture2DGL::channelsOf(unsigned format) {
    if (isOneOf(format, {GL_DEPTH_COMPONENT, GL_DEPTH_COMPONENT16, GL_DEPTH_COMPONENT24, GL_DEPTH_COMPONENT32,
                         GL_DEPTH_COMPONENT32F, GL_DEPTH24_STENCIL8, GL_DEPTH_STENCIL}))
        return C_Depth;
    if (isOneOf(format, {GL_LUMINANCE, GL_LUMINANCE4, GL_LUMINANCE8, GL_LUMINANCE12, GL_LUMINANCE16, 1,
                         GL_LUMINANCE16F_ARB, GL_LUMINANCE32F_ARB, GL_COMPRESSED_LUMINANCE}))
        return C_Luminance;
    if (isOneOf(format,
                {GL_LUMINANCE_ALPHA, GL_LUMINANCE4_ALPHA4, GL_LUMINANCE8_ALPHA8, GL_LUMINANCE16_ALPHA16, 2,
                 GL_LUMINANCE_ALPHA16F_ARB, GL_LUMINANCE_ALPHA32F_ARB, GL_ALPHA, GL_ALPHA8, GL_ALPHA16,
                 GL_ALPHA16F_ARB, GL_ALPHA32F_ARB, GL_INTENSITY, GL_INTENSITY8, GL_INTENSITY16,
                 GL_INTENSITY16F_ARB, GL_INTENSITY32F_ARB, GL_COMPRESSED_ALPHA, GL_COMPRESSED_INTENSITY}))
        return C_LuminanceAlpha;
    if (isOneOf(format, {GL_RGB,      GL_RGB4,       GL_RGB5,           GL_RGB8,
                         GL_RGB10,    GL_RGB12,      GL_RGB16,          3,
                         GL_R3_G3_B2, GL_RGB16F_ARB, GL_RGB32F_ARB,     GL_R11F_G11F_B10F,
                         GL_SRGB,     GL_SRGB8,      GL_COMPRESSED_RGB, GL_COMPRESSED_RGB_S3TC_DXT1_EXT,
                         GL_R8,       GL_R16F,       GL_R32F,           GL_RG8,
                         GL_RG16F,    GL_RG32F}))
        return C_RGB;
    return C_RGBA;
}

void Texture2DGL::contentChanged() {
    contentChanged_ = true;
}

bool Texture2DGL::needsUpload() const {
    return contentChanged_;
}

bool Texture2DGL::upload(EngineGL *, bool isNew, bool withMipmaps) const {
    if (isNew) {
        const bool isDepth = channels() == C_Depth;
        glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(internalFormat_), static_cast<GLsizei>(width_),
                     static_cast<GLsizei>(height_), 0, isDepth ? GL_DEPTH_COMPONENT : GL_RGBA,
                     isDepth ? GL_UNSIGNED_INT : GL_UNSIGNED_BYTE, nullptr);
    }
    contentChanged_ = false;
    const bool mipmaps = withMipmaps && channels() != C_Depth;
    if (mipmaps) glGenerateMipmap(GL_TEXTURE_2D);
    return mipmaps;
}

} // namespace NBX
