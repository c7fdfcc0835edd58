#include <zmt/core/texturedtriangles/texturewrapper.h>

#include <algorithm>

#include <nbx/data/file.h>
#include <nbx/data/objectloader.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>

namespace ZMT::CORE {

using NBX::Image;
using NBX::ImageTexture2DGL;
using NBX::SO;
using NBX::TextureGL;

namespace {

bool isWrapMode(int mode) {
    return mode >= TextureGL::WM_Repeat && mode <= TextureGL::WM_MirroredRepeat;
}

bool isJpegFile(const std::string & fileName) {
    std::string extension = NBX::File::extensionName(fileName);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; });
    return extension == "jpeg";
}

} // namespace

NBX_STORED_CLASS_IMPL(TextureWrapper, MonoAttribute)

TextureWrapper::TextureWrapper() : MonoAttribute(true) {}

TextureWrapper::TextureWrapper(SO<ImageTexture2DGL> texture)
    : MonoAttribute(true), permanentTexture_(texture) {
    NBX_CHECK(texture, L"no texture");
    if (!texture) return;
    wrapS_ = texture->getWrapS();
    wrapT_ = texture->getWrapT();
    const SO<Image> image = texture->getImage();
    width_ = image ? image->width() : static_cast<int>(texture->getWidth());
    height_ = image ? image->height() : static_cast<int>(texture->getHeight());
}

TextureWrapper::TextureWrapper(const std::wstring & fileName, TextureGL::WrapMode wrapS,
                               TextureGL::WrapMode wrapT)
    : TextureWrapper(fileName, wrapS, wrapT, 0, 0) {
    const SO<Image> image = readImage();
    NBX_CHECK(image, L"image file not found");
    if (!image) return;
    width_ = image->width();
    height_ = image->height();
}

TextureWrapper::TextureWrapper(const std::wstring & fileName, TextureGL::WrapMode wrapS,
                               TextureGL::WrapMode wrapT, int width, int height)
    : MonoAttribute(true), wrapS_(wrapS), wrapT_(wrapT), width_(width), height_(height),
      imageFile_(fileName) {}

NBX::ID TextureWrapper::category() const {
    return TextureGL::ClassNameNBX();
}

SO<Image> TextureWrapper::readImage() const {
    return NBX::soCast<Image>(NBX::ObjectLoader::readFile(NBX::StringUtils::WString2Utf8String(imageFile_),
                                                          Image::ClassNameNBX(), false));
}

bool TextureWrapper::isExtern() const {
    return !permanentTexture_ && !imageFile_.empty();
}

std::wstring TextureWrapper::getFileName() const {
    return imageFile_;
}

SO<ImageTexture2DGL> TextureWrapper::getTexture() const {
    if (!isExtern()) return permanentTexture_;
    SO<Image> image = readImage();
    NBX_CHECK(image, L"image file not found:" << imageFile_);
    if (!image) return nullptr;
    if (isJpegFile(NBX::StringUtils::WString2Utf8String(imageFile_))) {
        SO<Image> copy = new NBX::MemoryImage(image->width(), image->height(), image->layerSequence());
        copy->copy(image.get());
        image = copy;
    }
    return new ImageTexture2DGL(image, wrapS_, wrapT_);
}

bool TextureWrapper::operator==(const TextureWrapper & other) const {
    return permanentTexture_ == other.permanentTexture_ && imageFile_ == other.imageFile_ &&
           (permanentTexture_ || !imageFile_.empty() || this == &other);
}

void TextureWrapper::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<MonoAttribute>(m, this);
    int wrapS = wrapS_, wrapT = wrapT_;
    SO<ImageTexture2DGL> temporaryTexture;
    m.attribute("permanentTexture", permanentTexture_);
    m.attribute("temporaryTexture", temporaryTexture);
    m.attribute("wrapS", wrapS);
    m.attribute("wrapT", wrapT);
    m.attribute("width", width_);
    m.attribute("height", height_);
    m.attribute("imageFile", imageFile_);
    if (!m.isReading()) return;
    if (!isWrapMode(wrapS) || !isWrapMode(wrapT) || width_ < 0 || height_ < 0)
        throw NBX::IOError(L"stored texture is damaged");
    wrapS_ = static_cast<TextureGL::WrapMode>(wrapS);
    wrapT_ = static_cast<TextureGL::WrapMode>(wrapT);
}

} // namespace ZMT::CORE
