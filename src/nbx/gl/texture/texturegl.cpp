// `bind` makes the name, uploads what has changed, adds mipmaps when the filter first wants them, and emits
// the parameters that differ from those last emitted. The luminance mask is read back from OpenGL, as kinds
// of textures need not keep their pixels; weights of ITU-R BT.601.

#include <nbx/gl/texture/texturegl.h>

#include <algorithm>
#include <vector>

#include <GL/glew.h>

#include <nbx/engine/monoattributepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(TextureGL, MonoAttribute)

namespace {

GLenum minFilterValue(TextureGL::FilterMode mode, bool hasMipmaps) {
    if (!hasMipmaps && TextureGL::usesMipmaps(mode)) return GL_LINEAR;
    switch (mode) {
    case TextureGL::FM_Nearest:
        return GL_NEAREST;
    case TextureGL::FM_Linear:
        return GL_LINEAR;
    case TextureGL::FM_NearestMipmapNearest:
        return GL_NEAREST_MIPMAP_NEAREST;
    case TextureGL::FM_LinearMipmapNearest:
        return GL_LINEAR_MIPMAP_NEAREST;
    case TextureGL::FM_NearestMipmapLinear:
        return GL_NEAREST_MIPMAP_LINEAR;
    case TextureGL::FM_LinearMipmapLinear:
        break;
    }
    return GL_LINEAR_MIPMAP_LINEAR;
}

GLenum wrapValue(TextureGL::WrapMode mode) {
    switch (mode) {
    case TextureGL::WM_Clamp:
        return GL_CLAMP;
    case TextureGL::WM_ClampToEdge:
        return GL_CLAMP_TO_EDGE;
    case TextureGL::WM_ClampToBorder:
        return GL_CLAMP_TO_BORDER;
    case TextureGL::WM_MirroredRepeat:
        return GL_MIRRORED_REPEAT;
    case TextureGL::WM_Repeat:
        break;
    }
    return GL_REPEAT;
}

template <class Mode>
void serializeMode(SerializationManager & m, const char * name, Mode & mode, Mode defaultMode, int count) {
    int value = mode;
    attributeWithDefault(m, name, value, defaultMode);
    if (m.isReading()) mode = 0 <= value && value < count ? static_cast<Mode>(value) : defaultMode;
}

float luminance(float r, float g, float b) {
    return 0.299F * r + 0.587F * g + 0.114F * b;
}

/// The largest level of the bound texture as luminance.
SO<Image> readLuminance(unsigned target, unsigned width, unsigned height) {
    std::vector<float> texels(std::size_t(4) * width * height);
    glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
    GLint boundBuffer = 0;
    glGetIntegerv(GL_PIXEL_PACK_BUFFER_BINDING, &boundBuffer);
    if (boundBuffer != 0) glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    glPixelStorei(GL_PACK_SKIP_PIXELS, 0);
    glPixelStorei(GL_PACK_SKIP_ROWS, 0);
    // Read as RGBA, a luminance texture gives (L, 0, 0, 1): the format tells which sum is the luminance.
    glGetTexImage(target, 0, GL_RGBA, GL_FLOAT, texels.data());
    GLint luminanceBits = 0;
    glGetTexLevelParameteriv(target, 0, GL_TEXTURE_LUMINANCE_SIZE, &luminanceBits);
    if (boundBuffer != 0) glBindBuffer(GL_PIXEL_PACK_BUFFER, static_cast<GLuint>(boundBuffer));
    glPopClientAttrib();

    SO<MemoryImage> image =
        new MemoryImage(static_cast<int>(width), static_cast<int>(height), LS_Intensity, Image::Float);
    for (unsigned y = 0; y < height; ++y) {
        auto * line = static_cast<float *>(
            const_cast<void *>(static_cast<const MemoryImage &>(*image).lineComponents(static_cast<int>(y))));
        for (unsigned x = 0; x < width; ++x) {
            const float * t = &texels[4 * (std::size_t(y) * width + x)];
            line[x] = luminanceBits > 0 ? t[0] : luminance(t[0], t[1], t[2]);
        }
    }
    return image;
}

/// Mesa's software renderer goes over all texels that a pixel covers. Mipmaps keep them few; without any, a
/// triangle that is seen along its plane may have millions under a pixel, which takes minutes.
GLfloat largestAnisotropy(const EngineGL & engine, bool hasMipmaps) {
    if (!hasMipmaps && engine.rendererName().starts_with("llvmpipe")) return 1.0F;
    GLfloat largest = 1.0F;
    glGetFloatv(GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT, &largest);
    return largest;
}

} // namespace

TextureGL::TextureGL(bool enabled) : MonoAttribute(enabled) {}
TextureGL::~TextureGL() = default;

ID TextureGL::category() const {
    return ClassNameNBX();
}

void TextureGL::setMinFilter(FilterMode mode) {
    if (mode == minFilter_) return;
    minFilter_ = mode;
    modified();
}

void TextureGL::setMagFilter(FilterMode mode) {
    if (mode == magFilter_) return;
    magFilter_ = mode;
    modified();
}

void TextureGL::setWrap(WrapMode mode) {
    setWrapS(mode);
    setWrapT(mode);
    setWrapR(mode);
}

void TextureGL::setWrapS(WrapMode mode) {
    if (mode == wrapS_) return;
    wrapS_ = mode;
    modified();
}

void TextureGL::setWrapT(WrapMode mode) {
    if (mode == wrapT_) return;
    wrapT_ = mode;
    modified();
}

void TextureGL::setWrapR(WrapMode mode) {
    if (mode == wrapR_) return;
    wrapR_ = mode;
    modified();
}

void TextureGL::setAnisotropy(double anisotropy) {
    NBX_CHECK(anisotropy >= 1.0, L"anisotropy below 1: " << anisotropy);
    const double value = anisotropy >= 1.0 ? anisotropy : 1.0;
    if (value == anisotropy_) return;
    anisotropy_ = value;
    modified();
}

void TextureGL::setBorderColor(const Color & color) {
    if (color == borderColor_) return;
    borderColor_ = color;
    modified();
}

void TextureGL::setMatrix(const Matrix4x4Base<double> & matrix) {
    if (matrix == matrix_) return;
    matrix_ = matrix;
    modified();
}

TextureGL::Parameters TextureGL::wantedParameters() const {
    Parameters p;
    p.minFilter = minFilterValue(minFilter_, hasMipmaps_);
    p.magFilter = magFilter_ == FM_Nearest ? GL_NEAREST : GL_LINEAR;
    p.wrapS = wrapValue(wrapS_);
    p.wrapT = wrapValue(wrapT_);
    p.wrapR = wrapValue(wrapR_);
    p.anisotropy = anisotropy_;
    p.borderColor = borderColor_;
    return p;
}

void TextureGL::emitParameters(EngineGL * engine) const {
    const Parameters p = wantedParameters();
    if (p == emitted_) return;
    glTexParameteri(target(), GL_TEXTURE_MIN_FILTER, static_cast<GLint>(p.minFilter));
    glTexParameteri(target(), GL_TEXTURE_MAG_FILTER, static_cast<GLint>(p.magFilter));
    glTexParameteri(target(), GL_TEXTURE_WRAP_S, static_cast<GLint>(p.wrapS));
    glTexParameteri(target(), GL_TEXTURE_WRAP_T, static_cast<GLint>(p.wrapT));
    if (target() == GL_TEXTURE_3D || target() == GL_TEXTURE_CUBE_MAP)
        glTexParameteri(target(), GL_TEXTURE_WRAP_R, static_cast<GLint>(p.wrapR));
    glTexParameterfv(target(), GL_TEXTURE_BORDER_COLOR, p.borderColor.data());
    static const ID anisotropic("GL_EXT_texture_filter_anisotropic");
    if (engine->hasExtension(anisotropic))
        glTexParameterf(
            target(), GL_TEXTURE_MAX_ANISOTROPY_EXT,
            std::min(static_cast<GLfloat>(p.anisotropy), largestAnisotropy(*engine, hasMipmaps_)));
    emitted_ = p;
}

void TextureGL::bind(EngineGL * engine) const {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    const bool isNew = !name_;
    if (isNew) {
        name_ = NameGL::generate(NameGL::NK_Texture);
        emitted_ = Parameters();
        hasMipmaps_ = false;
    }
    glBindTexture(target(), name_.get());
    const bool wantsMipmaps = usesMipmaps(minFilter_);
    if (isNew || needsUpload()) {
        hasMipmaps_ = upload(engine, isNew, wantsMipmaps);
        ++uploads_;
    } else if (wantsMipmaps && !hasMipmaps_) {
        hasMipmaps_ = generateMipmaps(engine);
    }
    emitParameters(engine);
}

bool TextureGL::generateMipmaps(EngineGL *) const {
    glGenerateMipmap(target());
    return true;
}

void TextureGL::dropName() {
    name_.drop();
    mask_ = nullptr;
}

SO<TextureGL> TextureGL::luminanceMask(EngineGL * engine) const {
    if (channels() == C_Depth || target() != GL_TEXTURE_2D) return nullptr;
    GLint bound = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    bind(engine);
    if (!mask_ || maskedUpload_ != uploads_) {
        mask_ =
            new ImageTexture2DGL(readLuminance(target(), textureWidth(), textureHeight()), wrapS_, wrapT_);
        static_cast<ImageTexture2DGL *>(mask_.get())->unrefImageAfterBinding();
        maskedUpload_ = uploads_;
    }
    glBindTexture(target(), static_cast<GLuint>(bound));
    const float border = luminance(borderColor_[0], borderColor_[1], borderColor_[2]);
    mask_->setWrapS(wrapS_);
    mask_->setWrapT(wrapT_);
    mask_->setMinFilter(minFilter_);
    mask_->setMagFilter(magFilter_);
    mask_->setAnisotropy(anisotropy_);
    mask_->setBorderColor(Color(border, border, border, border));
    mask_->setMatrix(matrix_);
    return mask_;
}

void TextureGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    serializeMode(m, "wrapS", wrapS_, WM_Repeat, WM_MirroredRepeat + 1);
    serializeMode(m, "wrapT", wrapT_, WM_Repeat, WM_MirroredRepeat + 1);
    serializeMode(m, "wrapR", wrapR_, WM_Repeat, WM_MirroredRepeat + 1);
    serializeMode(m, "minFilter", minFilter_, FM_LinearMipmapLinear, FM_NearestMipmapLinear + 1);
    serializeMode(m, "magFilter", magFilter_, FM_Linear, FM_NearestMipmapLinear + 1);
    attributeWithDefault(m, "anisotropy", anisotropy_, 1.0);
    if (m.isReading() && !(anisotropy_ >= 1.0)) anisotropy_ = 1.0;
    attributeWithDefault(m, "matrix", matrix_, Matrix4x4Base<double>());
    Vector3Base<double> border(borderColor_[0], borderColor_[1], borderColor_[2]);
    double alpha = borderColor_[3];
    attributeWithDefault(m, "borderColor", border, Vector3Base<double>(0.0, 0.0, 0.0));
    attributeWithDefault(m, "borderAlpha", alpha, 0.0);
    if (m.isReading()) borderColor_ = Color(border.x, border.y, border.z, alpha);
}

} // namespace NBX
