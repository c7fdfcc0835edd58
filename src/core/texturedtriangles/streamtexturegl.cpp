// A block is coded level by level from one image, and sent level by level as it is. What it says of itself
// has come from a file: its levels are computed from its sides, and held against its bytes before OpenGL
// reads any of them. Levels larger than the card takes are left out.

#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include <algorithm>
#include <cstring>

#include <GL/glew.h>

#include <nbx/data/memorydataresource.h>
#include <nbx/image/compressedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>

#include "nbx/gl/texture/defaultunpackinggl.h"

namespace ZMT::CORE {

using StreamTexture = TTTMemoryController::StreamTexture;

NBX_STORED_CLASS_IMPL(TTTMemoryController::StreamTexture, NBX::SharedObj)

namespace {

using Format = TexturedTriangleTree::TextureFormat;
using Level = StreamTexture::Level;

bool isSide(int side) {
    return side >= 1 && side <= TTTMemoryController::s_largestSide;
}

Level levelOf(int width, int height, Format format) {
    const auto w = static_cast<std::size_t>(width), h = static_cast<std::size_t>(height);
    if (format == TexturedTriangleTree::TextureFormatLuminance8)
        return {width, height, Level::Luminance, w * h};
    if (format == TexturedTriangleTree::TextureFormatRGBA5551 && std::min(width, height) > 1)
        return {width, height, Level::BGRA5551, 2 * w * h};
    if (format == TexturedTriangleTree::TextureFormatDXT1 && std::min(width, height) > 3)
        return {width, height, Level::DXT1,
                NBX::CompressedImage::dataSize(NBX::CompressedImage::DXT1, width, height)};
    return {width, height, Level::BGRA, 4 * w * h};
}

std::vector<Level> allLevels(int width, int height, Format format) {
    std::vector<Level> levels;
    if (!isSide(width) || !isSide(height)) return levels;
    for (;;) {
        levels.push_back(levelOf(width, height, format));
        if (std::max(width, height) == 1) return levels;
        width = std::max(1, width / 2);
        height = std::max(1, height / 2);
    }
}

GLint wrapOf(NBX::TextureGL::WrapMode mode) {
    if (mode == NBX::TextureGL::WM_Repeat) return GL_REPEAT;
    return mode == NBX::TextureGL::WM_MirroredRepeat ? GL_MIRRORED_REPEAT : GL_CLAMP_TO_EDGE;
}

std::uint64_t sumOf(const std::vector<Level> & levels) {
    std::uint64_t bytes = 0;
    for (const Level & level : levels)
        bytes += level.bytes;
    return bytes;
}

/// The image as the levels have it: one byte of grey, or blue, green, red and alpha.
NBX::SO<NBX::Image> uncoded(const NBX::SO<NBX::Image> & image, Format format) {
    const NBX::LayerSequence sequence =
        format == TexturedTriangleTree::TextureFormatLuminance8 ? NBX::LS_Luminance : NBX::LS_BGRA;
    if (image->layerSequence() == sequence && image->dataType() == NBX::Image::UInt8) return image;
    NBX::SO<NBX::Image> result(new NBX::MemoryImage(image->width(), image->height(), sequence));
    return result->copy(image.get()) ? result : nullptr;
}

void writeLevel(const NBX::Image & image, const Level & level, unsigned char * to) {
    if (level.coding == Level::BGRA5551 || level.coding == Level::DXT1) {
        const NBX::SO<NBX::CompressedImage> coded(new NBX::CompressedImage(
            level.coding == Level::DXT1 ? NBX::CompressedImage::DXT1 : NBX::CompressedImage::BGRA5551,
            &image));
        if (coded->dataSize() == level.bytes)
            std::memcpy(to, coded->rawData()->pointer(NBX::CompressedImage::headerSize), level.bytes);
        return;
    }
    const std::size_t lineBytes = level.bytes / static_cast<std::size_t>(level.height);
    for (int y = 0; y < level.height; ++y, to += lineBytes)
        std::memcpy(to, image.lineComponents(y), lineBytes);
}

NBX::SO<NBX::DataResource> newBlock(NBX::SO<NBX::Image> image, Format format) {
    const std::vector<Level> levels = allLevels(image->width(), image->height(), format);
    const std::uint64_t bytes = sumOf(levels);
    if (levels.empty() || bytes > UINT32_MAX) {
        NBX_FAILURE(L"image too large for a texture: " << image->width() << L" x " << image->height());
        return nullptr;
    }
    NBX::SO<NBX::MemoryDataResource> block(new NBX::MemoryDataResource(static_cast<unsigned>(bytes)));
    auto * to = static_cast<unsigned char *>(block->pointer());
    image = uncoded(image, format);
    for (const Level & level : levels) {
        if (!image) return nullptr;
        writeLevel(*image, level, to);
        to += level.bytes;
        const NBX::SO<NBX::Image> half(new NBX::MemoryImage(
            std::max(1, level.width / 2), std::max(1, level.height / 2), image->layerSequence()));
        image = half->copy(image.get()) ? half : nullptr;
    }
    return block;
}

void sendLevel(const Level & level, int number, const unsigned char * texels) {
    switch (level.coding) {
    case Level::DXT1:
        glCompressedTexImage2D(GL_TEXTURE_2D, number, GL_COMPRESSED_RGB_S3TC_DXT1_EXT, level.width,
                               level.height, 0, static_cast<GLsizei>(level.bytes), texels);
        return;
    case Level::Luminance:
        glTexImage2D(GL_TEXTURE_2D, number, GL_LUMINANCE8, level.width, level.height, 0, GL_LUMINANCE,
                     GL_UNSIGNED_BYTE, texels);
        return;
    case Level::BGRA:
    case Level::BGRA5551:
        glTexImage2D(GL_TEXTURE_2D, number, GL_RGBA8, level.width, level.height, 0, GL_BGRA,
                     level.coding == Level::BGRA ? GL_UNSIGNED_BYTE : GL_UNSIGNED_SHORT_5_5_5_1, texels);
        return;
    }
}

/// Works on the matrix of textures while it lives.
class TextureMatrixMode {
public:
    TextureMatrixMode() {
        glGetIntegerv(GL_MATRIX_MODE, &before_);
        glMatrixMode(GL_TEXTURE);
    }
    ~TextureMatrixMode() { glMatrixMode(static_cast<GLenum>(before_)); }
    TextureMatrixMode(const TextureMatrixMode &) = delete;
    TextureMatrixMode & operator=(const TextureMatrixMode &) = delete;

private:
    GLint before_ = GL_MODELVIEW;
};

} // namespace

TTTMemoryController::StreamTexture::StreamTexture() = default;

TTTMemoryController::StreamTexture::StreamTexture(NBX::SO<NBX::Image> image, TextureFormat format)
    : format_(format) {
    NBX_CHECK(image, L"no image");
    if (!image) return;
    const bool hasPixels = image->width() > 0 && image->height() > 0;
    NBX_CHECK(hasPixels, L"no image");
    if (!hasPixels) return;
    data_ = newBlock(image, format);
    if (!data_) return;
    width_ = image->width();
    height_ = image->height();
    textureBytes_ = textureBytes(width_, height_, format_);
}

TTTMemoryController::StreamTexture::StreamTexture(int width, int height, NBX::SO<NBX::DataResource> data,
                                                  TextureFormat format)
    : width_(width), height_(height), data_(data), format_(format),
      textureBytes_(textureBytes(width, height, format)) {
    if (isSide(width) && isSide(height)) return;
    NBX_FAILURE(L"a texture of " << width << L" x " << height << L" texels");
    width_ = height_ = 0;
}

TTTMemoryController::StreamTexture::~StreamTexture() = default;

void TTTMemoryController::StreamTexture::setMatrix(const NBX::Matrix4x4Base<double> & matrix) {
    matrix_ = matrix;
    modified();
}

std::vector<Level> TTTMemoryController::StreamTexture::levels(int width, int height, TextureFormat format) {
    std::vector<Level> levels = allLevels(width, height, format);
    if (format != TexturedTriangleTree::TextureFormatDXT1) return levels;
    const auto last = std::find_if(levels.begin(), levels.end(), [](const Level & level) {
        return std::min(level.width, level.height) < 8;
    });
    if (last != levels.end()) levels.erase(last + 1, levels.end());
    return levels;
}

std::uint64_t TTTMemoryController::StreamTexture::blockBytes(int width, int height, TextureFormat format) {
    return sumOf(allLevels(width, height, format));
}

std::uint64_t TTTMemoryController::StreamTexture::levelBytes(int width, int height, TextureFormat format) {
    return sumOf(levels(width, height, format));
}

std::uint64_t TTTMemoryController::StreamTexture::textureBytes(int width, int height, TextureFormat format) {
    std::uint64_t bytes = 0;
    for (const Level & level : levels(width, height, format))
        bytes += level.coding == Level::BGRA5551 ? 2 * level.bytes : level.bytes;
    return bytes;
}

bool TTTMemoryController::StreamTexture::isComplete() const {
    return data_ && width_ > 0 && height_ > 0 && data_->size() >= levelBytes(width_, height_, format_);
}

std::uint64_t TTTMemoryController::StreamTexture::memoryBytes() const {
    return (data_ ? data_->size() : 0) + textureBytes_;
}

void TTTMemoryController::StreamTexture::upload() {
    if (!isComplete()) {
        if (!isReported_) NBX_FAILURE(L"data buffer incomplete. Texture cannot be applied.");
        isReported_ = true;
        return;
    }
    NBX::NameGL name = NBX::NameGL::generate(NBX::NameGL::NK_Texture);
    if (!name) return;
    const NBX::DefaultUnpacking packed;
    glBindTexture(GL_TEXTURE_2D, name.get());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    GLint largest = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &largest);
    const auto * texels = static_cast<const unsigned char *>(data_->pointer());
    int number = 0;
    for (const Level & level : levels(width_, height_, format_)) {
        if (std::max(level.width, level.height) <= largest) sendLevel(level, number++, texels);
        texels += level.bytes;
    }
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, std::max(0, number - 1));
    name_ = std::move(name);
    if (unrefAfterBinding_) data_ = nullptr;
}

bool TTTMemoryController::StreamTexture::apply(bool apply) {
    const TextureMatrixMode mode;
    if (!apply) {
        glDisable(GL_TEXTURE_2D);
        glPopMatrix();
        return false;
    }
    glPushMatrix();
    glLoadMatrixd(matrix_.columns().data());
    glEnable(GL_TEXTURE_2D);
    if (!name_ && (data_ || !isReported_)) upload();
    glBindTexture(GL_TEXTURE_2D, name_.get());
    return bool(name_);
}

/// Leaves may show one block in several ways.
void TTTMemoryController::StreamTexture::setWrap(NBX::TextureGL::WrapMode s, NBX::TextureGL::WrapMode t) {
    if (s == wrapS_ && t == wrapT_) return;
    wrapS_ = s;
    wrapT_ = t;
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, wrapOf(s));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, wrapOf(t));
}

void TTTMemoryController::StreamTexture::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<NBX::SharedObj>(m, this);
    m.attribute("width", width_);
    m.attribute("height", height_);
    NBX::attributeWithDefault(m, "data", data_, NBX::SO<NBX::DataResource>());
    m.attribute("matrix", matrix_);
    int format = format_;
    NBX::attributeWithDefault(m, "format", format, 0);
    if (!m.isReading()) return;
    const bool isFormat = format >= TexturedTriangleTree::TextureFormatRGBA8 &&
                          format <= TexturedTriangleTree::TextureFormatJPEG;
    if (!isFormat || (data_ && (!isSide(width_) || !isSide(height_))))
        throw NBX::IOError(L"stored texture is damaged", L"its format or its size");
    if (!data_) width_ = height_ = 0;
    format_ = static_cast<TextureFormat>(format);
    textureBytes_ = textureBytes(width_, height_, format_);
}

} // namespace ZMT::CORE
