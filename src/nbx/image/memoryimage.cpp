#include <nbx/image/memoryimage.h>

#include <algorithm>
#include <limits>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

#include "storage.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(MemoryImage, Image)

MemoryImage::MemoryImage() : Image(LS_Luminance, UInt8) {}

MemoryImage::MemoryImage(int width, int height, LayerSequence sequence, int dataType, int alignment,
                         MemoryLayout layout)
    : Image(sequence, dataType) {
    constexpr std::size_t limit = std::numeric_limits<std::ptrdiff_t>::max() / 2;
    if (checkedImageBytes(width, height, layerSequence(), this->dataType(), alignment, layout, limit))
        allocate(width, height, alignment);
}

void MemoryImage::allocate(int width, int height, int alignment) {
    pitch_ = bytesPerLine(width, layerSequence(), dataType(), alignment);
    // Fresh pages of the system are zero already, so that large images cost nothing until they are filled.
    pixels_.reset(static_cast<unsigned char *>(std::calloc(static_cast<std::size_t>(height), pitch_)));
    if (!pixels_) NBX_FAILURE(L"no memory for an image of " << width << L" x " << height << L" pixels");
    width_ = pixels_ ? width : 0;
    height_ = pixels_ ? height : 0;
    alignment_ = alignment;
}

int MemoryImage::padding() const {
    return static_cast<int>(pitch_ - bytesPerLine(width_, layerSequence(), dataType(), 1));
}

const void * MemoryImage::lineComponents(int y) const {
    NBX_CHECK_RANGE(0, y, height_);
    if (y < 0 || y >= height_) return nullptr;
    return pixels_.get() + static_cast<std::size_t>(y) * pitch_;
}

void MemoryImage::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Image>(m, this);
    int width = width_, height = height_, sequence = layerSequence(), type = dataType(),
        alignment = alignment_;
    attributeWithDefault(m, "width", width, 0);
    attributeWithDefault(m, "height", height, 0);
    attributeWithDefault(m, "layerSequence", sequence, LS_Luminance);
    attributeWithDefault(m, "dataType", type, UInt8);
    attributeWithDefault(m, "alignment", alignment, 1);
    if (m.isReading()) {
        width_ = height_ = 0;
        pitch_ = 0;
        pixels_.reset();
        if ((width == 0 && height == 0) || !isValidFormat(sequence, type)) return;
        setFormat(static_cast<LayerSequence>(sequence), type);
        // The stored lines have no padding, which multiplies the bytes at most by the alignment.
        const auto limit = static_cast<std::size_t>(m.bytesLeft());
        if (!checkedImageBytes(width, height, layerSequence(), type, 1, ML_Interleaved, limit)) return;
        if (!checkedImageBytes(width, height, layerSequence(), type, alignment, ML_Interleaved,
                               std::numeric_limits<std::ptrdiff_t>::max() / 2))
            return;
        allocate(width, height, alignment);
    }
    serializePixels(m);
}

void MemoryImage::serializePixels(SerializationManager & m) {
    if (isEmpty()) return;
    const std::size_t bytes = bytesPerLine(width_, layerSequence(), dataType(), 1);
    std::vector<unsigned char> packed(bytes * height_);
    for (int y = 0; !m.isReading() && y < height_; ++y)
        std::copy_n(pixels_.get() + y * pitch_, bytes, packed.data() + y * bytes);
    const bool found = m.rawAttribute("pixels", packed.data(), packed.size());
    if (!m.isReading()) return;
    if (!found) {
        width_ = height_ = 0;
        pixels_.reset();
    }
    for (int y = 0; y < height_; ++y)
        std::copy_n(packed.data() + y * bytes, bytes, pixels_.get() + y * pitch_);
}

} // namespace NBX
