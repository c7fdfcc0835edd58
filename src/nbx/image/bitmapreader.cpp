// stb_image decodes these two formats, and no other: it takes what is missing at the end of a file for zeros,
// and memory for whatever size a file claims, so that both are looked at here.

#include <nbx/image/bitmapreader.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_BMP
#define STBI_ONLY_TGA
#define STBI_NO_STDIO
#define STBI_NO_FAILURE_STRINGS
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#include <stb_image.h>
#pragma GCC diagnostic pop

#include <nbx/data/dataresource.h>
#include <nbx/image/memoryimage.h>

#include "storage.h"

namespace NBX {

NBX_CLASS_IMPL(BitmapReader, SharedObj)

namespace {

/// A run of TGA makes 128 pixels of two bytes.
constexpr std::int64_t maxBitmapPixelsPerByte = 128;

/// Where the decoder reads.
struct Source {
    const DataResource * data;
    unsigned position = 0;
    bool isExhausted = false; ///< more was wanted when nothing was left
};

int readBytes(void * user, char * target, int count) {
    auto & source = *static_cast<Source *>(user);
    const unsigned size = source.data->size();
    if (source.position >= size) {
        source.isExhausted = true;
        return 0;
    }
    const unsigned got = source.data->read(source.position, target, static_cast<unsigned>(count));
    source.position += got;
    return static_cast<int>(got);
}

/// Steps back as well, within what was read last.
void skipBytes(void * user, int count) {
    auto & source = *static_cast<Source *>(user);
    const std::int64_t position = std::int64_t{source.position} + count;
    source.position = static_cast<unsigned>(std::clamp<std::int64_t>(position, 0, source.data->size()));
}

int isAtEnd(void * user) {
    const auto & source = *static_cast<Source *>(user);
    return source.position >= source.data->size();
}

constexpr stbi_io_callbacks callbacks = {readBytes, skipBytes, isAtEnd};

SO<Image> imageOf(const stbi_uc * pixels, int width, int height, int channels) {
    SO<MemoryImage> image(new MemoryImage(width, height, layersOfChannels(channels)));
    if (image->width() != width) return nullptr;
    const std::size_t lineBytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    for (int y = height - 1; y >= 0; --y, pixels += lineBytes)
        std::memcpy(image->lineComponents(y), pixels, lineBytes);
    return image;
}

} // namespace

std::optional<ImageHeader> BitmapReader::readHeader(const DataResource * data) {
    if (!data) return std::nullopt;
    Source source{data};
    int width = 0, height = 0, channels = 0;
    if (!stbi_info_from_callbacks(&callbacks, &source, &width, &height, &channels)) return std::nullopt;
    // Heights of BMP files that begin at the top are negative.
    if (height == INT32_MIN) return std::nullopt;
    height = std::abs(height);
    if (width <= 0 || height <= 0 || channels < 1 || channels > 4) return std::nullopt;
    return ImageHeader{width, height, layersOfChannels(channels), Image::UInt8};
}

SO<Image> BitmapReader::read(const DataResource * data) {
    const auto header = readHeader(data);
    if (!header || std::int64_t{header->width} * header->height / maxBitmapPixelsPerByte > data->size())
        return nullptr;
    Source source{data};
    int width = 0, height = 0, channels = 0;
    const std::unique_ptr<stbi_uc, void (*)(void *)> pixels(
        stbi_load_from_callbacks(&callbacks, &source, &width, &height, &channels,
                                 Image::numberOfLayers(header->layerSequence)),
        stbi_image_free);
    if (!pixels || source.isExhausted) return nullptr;
    return imageOf(pixels.get(), width, height, Image::numberOfLayers(header->layerSequence));
}

} // namespace NBX
