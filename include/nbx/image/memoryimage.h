#pragma once

#include <cstdlib>
#include <memory>

#include <nbx/image/image.h>

namespace NBX {

/// Image with its pixels in main memory, which start as zero.
///
/// Stored attributes: "width", "height", "layerSequence", "dataType", "alignment", "pixels" (lines without
/// padding). What does not fit together when read leaves the image empty.
class MemoryImage : public Image {
    NBX_STORED_CLASS(MemoryImage, Image)
public:
    /// Lines begin at multiples of `alignment` bytes. Sizes below 1 and values of no meaning are reported;
    /// the image is then empty.
    MemoryImage(int width, int height, LayerSequence sequence, int dataType = UInt8, int alignment = 1,
                MemoryLayout layout = ML_Interleaved);

    int width() const override { return width_; }
    int height() const override { return height_; }
    int alignment() const override { return alignment_; }
    int padding() const override;
    using Image::lineComponents;
    const void * lineComponents(int y) const override;
    void serialize(SerializationManager & m) override;

protected:
    MemoryImage();

private:
    struct Free {
        void operator()(void * p) const { std::free(p); }
    };

    void allocate(int width, int height, int alignment);
    void serializePixels(SerializationManager & m);

    int width_ = 0, height_ = 0, alignment_ = 1;
    std::size_t pitch_ = 0; ///< bytes from line to line
    std::unique_ptr<unsigned char, Free> pixels_;
};

} // namespace NBX
