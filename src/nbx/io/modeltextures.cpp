// A texture is a reference, which becomes a file or bytes in the model, which become an image, which becomes
// one texture for each way in which it is repeated. Each of these steps is made once.

#include "modeltextures.h"

#include "plaintext.h"

#include <cstring>

#include <nbx/data/memorydataresource.h>
#include <nbx/image/encodedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

#include "nbx/data/lazyfileresource.h"

namespace NBX {

namespace {

std::string folderOf(const std::string & path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

/// Models name pictures that stand in them by a number.
bool isNumber(const std::string & reference) {
    return !reference.empty() && reference[0] == '*';
}

SO<Image> imageOfPixels(const ModelAnswer::Texture & texture) {
    if (texture.width > EncodedImage::maxSide || texture.height > EncodedImage::maxSide) return nullptr;
    const int width = static_cast<int>(texture.width), height = static_cast<int>(texture.height);
    SO<MemoryImage> image(new MemoryImage(width, height, LS_RGBA));
    if (image->width() != width) return nullptr;
    const std::size_t lineBytes = 4 * std::size_t{texture.width};
    for (int y = 0; y < height; ++y)
        std::memcpy(image->lineComponents(height - 1 - y),
                    texture.bytes.data() + static_cast<std::size_t>(y) * lineBytes, lineBytes);
    return image;
}

} // namespace

ModelTextures::ModelTextures(const ModelAnswer & answer, const std::string & model,
                             const std::vector<std::string> & folders)
    : answer_(answer), own_(folderOf(model)), others_(folders.begin(), folders.end()) {}

SO<ImageTexture2DGL> ModelTextures::textureOf(const ModelAnswer::Material & material) {
    if (material.texture.empty() && material.embedded < 0) return nullptr;
    SO<Image> image = imageOf(material);
    if (!image) return nullptr;
    if (material.isOpaque) image = opaque(image);
    SO<ImageTexture2DGL> & texture = textures_[{image.get(), material.wrapS, material.wrapT}];
    if (!texture)
        texture = new ImageTexture2DGL(image, static_cast<TextureGL::WrapMode>(material.wrapS),
                                       static_cast<TextureGL::WrapMode>(material.wrapT));
    return texture;
}

SO<Image> ModelTextures::imageOf(const ModelAnswer::Material & material) {
    const bool isEmbedded = material.embedded >= 0;
    const auto key = std::pair(isEmbedded ? std::string() : material.texture, material.embedded);
    const auto [place, isNew] = images_.try_emplace(key);
    if (!isNew) return place->second;
    ModelTexture told;
    told.name = plainText(material.texture);
    place->second = isEmbedded
                        ? embeddedImage(answer_.textures[static_cast<std::size_t>(material.embedded)], told)
                        : imageInFile(material.texture, told);
    if (place->second) {
        told.width = place->second->width();
        told.height = place->second->height();
    }
    told_.push_back(told);
    return place->second;
}

/// The image without its alpha, or itself where it has none.
SO<Image> ModelTextures::opaque(const SO<Image> & image) {
    const auto [place, isNew] = opaque_.try_emplace(image.get(), image);
    if (!isNew) return place->second;
    if (const auto encoded = soCast<EncodedImage>(image)) {
        if (const SO<EncodedImage> other = encoded->withoutAlpha()) place->second = other;
    } else {
        const SO<MemoryImage> pixels(new MemoryImage(image->width(), image->height(), LS_RGB));
        if (pixels->copy(image.get())) place->second = pixels;
    }
    return place->second;
}

/// Folders that are given are also searched for the name alone: paths in models are those of other machines.
std::string ModelTextures::find(const std::string & reference, std::string & failure) const {
    const FolderFiles::Found inOwn = own_.find(reference);
    if (!inOwn.path.empty()) return inOwn.path;
    failure = inOwn.refusal;
    const std::string name = FolderFiles::lastName(reference);
    for (const FolderFiles & folder : others_)
        for (const std::string & text : {reference, name}) {
            const FolderFiles::Found found = folder.find(text);
            if (!found.path.empty()) return found.path;
            if (failure.empty()) failure = found.refusal;
        }
    if (failure.empty()) failure = "there is no such file";
    failure += "; put it into the model's folder, or name its folder";
    return {};
}

SO<Image> ModelTextures::imageInFile(const std::string & reference, ModelTexture & told) {
    const std::string path = isNumber(reference) ? std::string() : find(reference, told.failure);
    if (isNumber(reference)) told.failure = "it is not in the model's file";
    if (path.empty()) return nullptr;
    told.failure.clear();
    told.path = path;
    const auto [place, isNew] = files_.try_emplace(path);
    if (!isNew && place->second) return place->second;
    try {
        const SO<LazyFileResource> data(new LazyFileResource(path));
        told.failure = StringUtils::WString2Utf8String(EncodedImage::refusalOf(*data));
    } catch (const Exception & failure) {
        told.failure = StringUtils::WString2Utf8String(failure.message());
    }
    if (told.failure.empty()) place->second = new EncodedImage(path);
    return place->second;
}

SO<Image> ModelTextures::embeddedImage(const ModelAnswer::Texture & texture, ModelTexture & told) const {
    if (isNumber(told.name) || told.name.empty()) told.name = plainText(texture.name);
    if (texture.width != 0) {
        const SO<Image> image = imageOfPixels(texture);
        if (!image) told.failure = "it is too large";
        return image;
    }
    if (texture.bytes.size() > UINT32_MAX) {
        told.failure = "it is too large";
        return nullptr;
    }
    const SO<DataResource> data(
        new MemoryDataResource(texture.bytes.data(), static_cast<unsigned>(texture.bytes.size()), false));
    told.failure = StringUtils::WString2Utf8String(EncodedImage::refusalOf(*data));
    if (!told.failure.empty()) return nullptr;
    return new EncodedImage(data, told.name);
}

} // namespace NBX
