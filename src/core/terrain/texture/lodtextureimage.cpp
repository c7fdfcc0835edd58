#include <zmt/core/terrain/texture/lodtextureimage.h>

#include <algorithm>
#include <limits>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

NBX_STORED_CLASS_IMPL(LODTexture_Image, NBX::Image)

namespace {

constexpr std::uint64_t s_maxLayers = 4;
/// What a file image takes.
constexpr std::uint64_t s_maxSize = std::numeric_limits<std::int32_t>::max();

/// Without the sequences that differ in the meaning or order of their layers only.
NBX::LayerSequence plainSequence(int layers) {
    return static_cast<NBX::LayerSequence>(layers);
}

} // namespace

LODTexture_Image::LODTexture_Image() : Image(NBX::LS_RGB, UInt8) {}

LODTexture_Image::LODTexture_Image(const NBX::Image * source, int width, int height) : LODTexture_Image() {
    NBX_CHECK(source, L"no image");
    if (source) take(source, width, height);
}

LODTexture_Image::~LODTexture_Image() = default;

void LODTexture_Image::allocate(std::uint64_t width, std::uint64_t height, NBX::LayerSequence sequence) {
    pixels_ = nullptr;
    sizeX_ = sizeY_ = 0;
    setFormat(sequence, UInt8);
    if (width == 0 || height == 0 || width > s_maxSize || height > s_maxSize) return;
    pixels_ = NBX::FileImage::newTemporary("zmt-lod-texture-", static_cast<int>(width),
                                           static_cast<int>(height), sequence);
    if (!pixels_) return;
    sizeX_ = static_cast<unsigned>(pixels_->width());
    sizeY_ = static_cast<unsigned>(pixels_->height());
}

void LODTexture_Image::take(const NBX::Image * source, int width, int height) {
    const auto size = [](int value) { return static_cast<std::uint64_t>(std::max(value, 0)); };
    allocate(size(width), size(height), plainSequence(source->numberOfLayers()));
    if (sizeX_ > 0) pixels_->copy(source);
}

const void * LODTexture_Image::lineComponents(int y) const {
    return pixelComponents(0, y, 0);
}

const void * LODTexture_Image::pixelComponents(int x, int y, int component) const {
    const int sizeX_ = width(), sizeY_ = height();
    NBX_CHECK((0 <= x) && (x < sizeX_), L"x out of range");
    NBX_CHECK((0 <= y) && (y < sizeY_), L"y out of range");
    NBX_CHECK((0 <= component) && (component < numberOfLayers()), L"component out of range");
    const bool isInside =
        0 <= x && x < sizeX_ && 0 <= y && y < sizeY_ && 0 <= component && component < numberOfLayers();
    return isInside ? static_cast<const NBX::Image &>(*pixels_).pixelComponents(x, y, component) : nullptr;
}

void LODTexture_Image::setRawData(const std::vector<unsigned char> & data, std::uint64_t width,
                                  std::uint64_t height) {
    const std::uint64_t pixels = width <= s_maxSize && height <= s_maxSize ? width * height : 0;
    if (pixels == 0 || data.size() % pixels != 0 || data.size() / pixels > s_maxLayers) return;
    allocate(width, height, plainSequence(static_cast<int>(data.size() / pixels)));
    const std::size_t bytes = data.size() / height;
    for (unsigned y = 0; y < sizeY_; ++y)
        std::copy_n(data.data() + y * bytes, bytes, pixels_->lineComponentsU8(static_cast<int>(y)));
}

void LODTexture_Image::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::Image>(m, this);
    const std::size_t bytes = std::size_t(sizeX_) * static_cast<unsigned>(numberOfLayers());
    std::uint64_t rawSize = bytes * sizeY_;
    NBX::attributeWithDefault(m, "rawSize", rawSize, 0U);
    if (m.isReading() && rawSize > m.bytesLeft()) rawSize = 0;
    std::vector<unsigned char> rawData(rawSize);
    for (unsigned y = 0; !m.isReading() && y < sizeY_; ++y)
        std::copy_n(lineComponentsU8(static_cast<int>(y)), bytes, rawData.data() + y * bytes);
    if (rawSize > 0 && !m.rawAttribute("rawData", rawData.data(), rawSize)) rawData.clear();

    NBX::SO<NBX::Image> data;
    NBX::attributeWithDefault(m, "data", data, nullptr);
    bool dummy = sizeX_ == 0;
    NBX::attributeWithDefault(m, "dummy", dummy, false);
    unsigned sizeX = sizeX_, sizeY = sizeY_;
    NBX::attributeWithDefault(m, "sizeX", sizeX, 0U);
    NBX::attributeWithDefault(m, "sizeY", sizeY, 0U);
    if (!m.isReading()) return;
    allocate(0, 0, NBX::LS_RGB);
    if (dummy) return;
    if (!rawData.empty())
        setRawData(rawData, sizeX, sizeY);
    else if (data && data->width() > 0)
        take(data.get(), data->width(), data->height());
}

} // namespace ZMT::CORE
