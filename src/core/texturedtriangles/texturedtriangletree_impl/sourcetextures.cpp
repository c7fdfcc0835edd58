#include "sourcetextures.h"

#include <algorithm>
#include <map>
#include <optional>

#include <nbx/image/encodedimage.h>
#include <nbx/image/imagereader.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

#include "nbx/data/lazyfileresource.h"

namespace ZMT::CORE {

namespace {

/// Two are equal that are the same file, or the same image in memory.
using Picture = std::pair<std::wstring, const NBX::Image *>;

Picture pictureIn(const TextureWrapper & wrapper) {
    if (wrapper.isExtern()) return {wrapper.getFileName(), nullptr};
    const NBX::SO<NBX::ImageTexture2DGL> texture = wrapper.getTexture();
    return {std::wstring(), texture ? texture->getImage().get() : nullptr};
}

} // namespace

SourceTextures::SourceTextures(const TriangleContainer & container, std::uint64_t mostBytes)
    : mostBytes_(mostBytes) {
    std::map<const TextureWrapper *, int> known;
    std::map<Picture, unsigned> pictures;
    for (unsigned mesh = 0; mesh < container.numberOfMeshes(); ++mesh) {
        const NBX::SO<TextureWrapper> texture = container.mesh(mesh).texture;
        if (!texture) {
            numbers_.push_back(-1);
            continue;
        }
        const auto [entry, isNew] = known.try_emplace(texture.get(), int(textures_.size()));
        if (isNew) {
            pictures_.push_back(pictures.try_emplace(pictureIn(*texture), size()).first->second);
            textures_.push_back(texture);
        }
        numbers_.push_back(entry->second);
    }
    isReported_.assign(textures_.size(), false);
}

namespace {

/// The pixels, which go with who holds them, also where the image itself would keep them.
NBX::SO<NBX::Image> pixelsOf(const NBX::SO<NBX::Image> & image) {
    const auto encoded = NBX::soCast<NBX::EncodedImage>(image);
    if (!encoded) return image ? image->uncompressed(false) : nullptr;
    const bool wasDecoded = encoded->isDecoded();
    NBX::SO<NBX::Image> pixels = encoded->decoded();
    if (!wasDecoded) encoded->releasePixels();
    return pixels;
}

std::uint64_t bytesOf(int width, int height, NBX::LayerSequence layers, int dataType) {
    if (width < 1 || height < 1) return 0;
    return std::uint64_t(NBX::Image::bytesPerLine(width, layers, dataType, 1)) * std::uint64_t(height);
}

/// Of a picture in a file that says so in its first bytes.
std::optional<NBX::ImageHeader> headerOf(const std::wstring & fileName) {
    try {
        const NBX::SO<NBX::LazyFileResource> file(
            new NBX::LazyFileResource(NBX::StringUtils::WString2Utf8String(fileName)));
        return NBX::ImageReader::readHeader(file.get());
    } catch (const NBX::Exception &) {
        return std::nullopt; // told when it is decoded
    }
}

} // namespace

/// Once it is decoded, as far as that is known before. Deep pictures take twice as much as others.
std::uint64_t SourceTextures::bytesToCome(const TextureWrapper & wrapper) const {
    if (wrapper.isExtern()) {
        const auto header = headerOf(wrapper.getFileName());
        if (header) return bytesOf(header->width, header->height, header->layerSequence, header->dataType);
    } else if (const NBX::SO<NBX::ImageTexture2DGL> texture = wrapper.getTexture()) {
        if (const NBX::SO<NBX::Image> image = texture->getImage())
            return bytesOf(image->width(), image->height(), image->layerSequence(), image->dataType());
    }
    return bytesOf(wrapper.getWidth(), wrapper.getHeight(), NBX::LS_RGBA, NBX::Image::UInt8);
}

NBX::SO<NBX::Image> SourceTextures::image(unsigned ofNumber, const std::function<void()> & letGo) {
    const unsigned number = pictureOf(ofNumber);
    const auto known = std::find_if(kept_.begin(), kept_.end(),
                                    [number](const Kept & kept) { return kept.number == number; });
    if (known != kept_.end()) return known->image;
    if (isReported_[number]) return nullptr;
    makeRoom(bytesToCome(*textures_[number]), letGo);
    ++loads_;
    const NBX::SO<NBX::ImageTexture2DGL> texture = textures_[number]->getTexture();
    const NBX::SO<NBX::Image> texData = texture ? pixelsOf(texture->getImage()) : nullptr;
    if (!texData || texData->width() < 1 || texData->height() < 1) {
        isReported_[number] = true;
        NBX_REPORT(2, L"texData",
                   L"no texture" << (textures_[number]->getFileName().empty() ? L"" : L": ")
                                 << textures_[number]->getFileName());
        return nullptr;
    }
    const std::uint64_t bytes =
        bytesOf(texData->width(), texData->height(), texData->layerSequence(), texData->dataType());
    makeRoom(bytes, letGo); // which may have become another picture
    kept_.push_back({number, texData, bytes});
    bytes_ += bytes;
    return texData;
}

void SourceTextures::makeRoom(std::uint64_t bytes, const std::function<void()> & letGo) {
    while (!kept_.empty() &&
           (kept_.size() >= s_mostImages || bytes > mostBytes_ - std::min(bytes_, mostBytes_))) {
        if (kept_.size() == 1 && letGo) letGo();
        bytes_ -= kept_.front().bytes;
        kept_.pop_front();
    }
}

NBX::SO<NBX::Image> SourceTextures::standIn() {
    // The smallest one that all formats store as it is.
    constexpr int side = 4;
    const NBX::SO<NBX::Image> image(new NBX::MemoryImage(side, side, NBX::LS_RGBA));
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x)
            image->setColor(x, y, NBX::Color(0.75F, 0.75F, 0.75F, 1.0F));
    return image;
}

} // namespace ZMT::CORE
