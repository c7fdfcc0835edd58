// Images in memory in a compressed form are sent as they are, with mipmaps compressed here; all others are
// reduced to what the driver takes, with mipmaps made by the driver. Without pixels a white texel stands in,
// as an incomplete texture would switch its unit off.

#include <nbx/gl/texture/imagetexture2dgl.h>

#include <algorithm>
#include <vector>

#include <GL/glew.h>

#include <nbx/data/dataresource.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/texture/imageopengltool.h>
#include <nbx/image/compressedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>

#include "defaultunpackinggl.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(ImageTexture2DGL, Texture2DGL)

namespace {

bool hasPixels(const Image * image) {
    return image && image->width() > 0 && image->height() > 0;
}

/// Whether `image` lies in memory in a form that is sent as it is.
const CompressedImage * asCompressed(const Image * image) {
    const auto * compressed = dynamic_cast<const CompressedImage *>(image);
    return compressed && compressed->compression() != CompressedImage::JPEG && compressed->rawData()
               ? compressed
               : nullptr;
}

TextureGL::Channels channelsOfLayers(LayerSequence sequence) {
    switch (sequence) {
    case LS_Luminance:
        return TextureGL::C_Luminance;
    case LS_LuminanceAlpha:
    case LS_Alpha:
    case LS_Intensity:
        return TextureGL::C_LuminanceAlpha;
    case LS_RGB:
    case LS_BGR:
        return TextureGL::C_RGB;
    case LS_RGBA:
    case LS_BGRA:
        break;
    }
    return TextureGL::C_RGBA;
}

TextureGL::Channels channelsOfCompressed(const CompressedImage & image) {
    return image.compression() == CompressedImage::DXT1 ? TextureGL::C_RGB : TextureGL::C_RGBA;
}

GLenum blockFormat(CompressedImage::Compression compression) {
    switch (compression) {
    case CompressedImage::DXT1:
        return GL_COMPRESSED_RGB_S3TC_DXT1_EXT;
    case CompressedImage::DXT1A:
        return GL_COMPRESSED_RGBA_S3TC_DXT1_EXT;
    case CompressedImage::DXT3:
        return GL_COMPRESSED_RGBA_S3TC_DXT3_EXT;
    default:
        return GL_COMPRESSED_RGBA_S3TC_DXT5_EXT;
    }
}

void uploadCompressedLevel(const CompressedImage & image, int level) {
    const void * pixels = image.rawData()->pointer(CompressedImage::headerSize);
    if (CompressedImage::isBlockFormat(image.compression())) {
        glCompressedTexImage2D(GL_TEXTURE_2D, level, blockFormat(image.compression()), image.width(),
                               image.height(), 0, static_cast<GLsizei>(image.dataSize()), pixels);
        return;
    }
    const bool is5551 = image.compression() == CompressedImage::BGRA5551;
    glTexImage2D(GL_TEXTURE_2D, level, is5551 ? GL_RGB5_A1 : GL_RGBA4, image.width(), image.height(), 0,
                 GL_BGRA, is5551 ? GL_UNSIGNED_SHORT_5_5_5_1 : GL_UNSIGNED_SHORT_4_4_4_4, pixels);
}

/// The image itself, or a reduced copy that the driver takes.
SO<Image> withinLimit(const SO<Image> & image, int limit) {
    if (image->width() <= limit && image->height() <= limit) return image;
    const double scale = double(limit) / std::max(image->width(), image->height());
    const auto reduced = [&](int side) { return std::clamp(static_cast<int>(side * scale), 1, limit); };
    SO<Image> copy = new MemoryImage(reduced(image->width()), reduced(image->height()),
                                     image->layerSequence(), image->dataType());
    copy->copy(image.get());
    return copy;
}

int maxTextureSize() {
    GLint size = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &size);
    return size;
}

} // namespace

ImageTexture2DGL::ImageTexture2DGL() : Texture2DGL(true) {}

ImageTexture2DGL::ImageTexture2DGL(SO<Image> image) : ImageTexture2DGL(image, WM_Repeat, WM_Repeat) {}

ImageTexture2DGL::ImageTexture2DGL(SO<Image> image, WrapMode wrapS, WrapMode wrapT, FilterMode minFilter,
                                   FilterMode magFilter, double anisotropy,
                                   const Matrix4x4Base<double> & matrix, const Color & borderColor,
                                   unsigned internalFormat, bool unrefImageAfterBinding)
    : Texture2DGL(true), image_(image), unrefImage_(unrefImageAfterBinding) {
    setWrapS(wrapS);
    setWrapT(wrapT);
    setMinFilter(minFilter);
    setMagFilter(magFilter);
    setAnisotropy(anisotropy);
    setMatrix(matrix);
    setBorderColor(borderColor);
    setInternalFormat(internalFormat);
    takeImage();
}

ImageTexture2DGL::~ImageTexture2DGL() = default;

void ImageTexture2DGL::takeImage() {
    uploaded_ = false;
    if (!hasPixels(image_.get())) return;
    setTextureSize(static_cast<unsigned>(image_->width()), static_cast<unsigned>(image_->height()));
    const CompressedImage * compressed = asCompressed(image_.get());
    channels_ = compressed ? channelsOfCompressed(*compressed) : channelsOfLayers(image_->layerSequence());
}

void ImageTexture2DGL::setImage(SO<Image> image) {
    image_ = image;
    takeImage();
    modified();
}

void ImageTexture2DGL::unrefImageAfterBinding(bool unref) {
    unrefImage_ = unref;
}

TextureGL::Channels ImageTexture2DGL::channels() const {
    return getInternalFormat() != 0 ? channelsOf(getInternalFormat()) : channels_;
}

bool ImageTexture2DGL::needsUpload() const {
    if (!uploaded_) return true;
    return image_ && image_->lastTransactionNo() != uploadedTransaction_;
}

bool ImageTexture2DGL::uploadCompressed(bool withMipmaps) const {
    std::vector<SO<Image>> levels;
    if (withMipmaps) levels = image_->createMipmapPyramid();
    if (levels.empty()) levels.push_back(image_);
    const int limit = maxTextureSize();
    int count = 0;
    for (const SO<Image> & level : levels) {
        const CompressedImage * compressed = asCompressed(level.get());
        if (!compressed) break;
        if (compressed->width() > limit || compressed->height() > limit) continue;
        uploadCompressedLevel(*compressed, count++);
    }
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, std::max(count - 1, 0));
    return withMipmaps && count > 0;
}

bool ImageTexture2DGL::upload(EngineGL *, bool, bool withMipmaps) const {
    const DefaultUnpacking unpacking;
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 1000);
    uploaded_ = true;
    uploadedCompressed_ = false;
    if (!hasPixels(image_.get())) {
        const GLubyte white[] = {255, 255, 255, 255};
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, white);
        setTextureSize(1, 1);
        return true;
    }
    uploadedTransaction_ = image_->lastTransactionNo();
    bool mipmaps = withMipmaps;
    const int limit = maxTextureSize();
    if (asCompressed(image_.get()) && image_->width() <= limit && image_->height() <= limit) {
        uploadedCompressed_ = true;
        mipmaps = uploadCompressed(withMipmaps);
        setTextureSize(static_cast<unsigned>(image_->width()), static_cast<unsigned>(image_->height()));
    } else {
        const SO<Image> fitting = withinLimit(image_, limit);
        const unsigned format = getInternalFormat();
        ImageOpenGLTool::textureImage2D(
            fitting.get(), 0, format != 0 ? format : ImageOpenGLTool::internalFormat(fitting.get()));
        if (withMipmaps) glGenerateMipmap(GL_TEXTURE_2D);
        setTextureSize(static_cast<unsigned>(fitting->width()), static_cast<unsigned>(fitting->height()));
    }
    if (unrefImage_) image_ = nullptr;
    return mipmaps;
}

bool ImageTexture2DGL::generateMipmaps(EngineGL * engine) const {
    if (!uploadedCompressed_) return Texture2DGL::generateMipmaps(engine);
    return image_ && upload(engine, false, true);
}

void ImageTexture2DGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Texture2DGL>(m, this);
    attributeWithDefault(m, "image", image_, SO<Image>());
    unsigned format = getInternalFormat();
    attributeWithDefault(m, "internalFormat", format, 0U);
    attributeWithDefault(m, "unrefImageAfterBinding", unrefImage_, false);
    if (!m.isReading()) return;
    setInternalFormat(format);
    takeImage();
}

} // namespace NBX
