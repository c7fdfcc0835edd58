#pragma once

#include <nbx/image/image.h>

namespace ZMT::UTIL {

/// An image that has a size and no pixels of its own, for who packs rectangles. All of them share one block
/// of memory, as long as the longest line that was asked for, which is let go with the last of them.
class DummyImage : public NBX::Image {
    NBX_CLASS(DummyImage, NBX::Image)
public:
    /// Of 8 bits of RGBA.
    DummyImage(int width, int height);
    ~DummyImage() override;

    int width() const override { return m_width; }
    int height() const override { return m_height; }
    bool isWritable() const override { return false; }
    using NBX::Image::lineComponents;
    const void * lineComponents(int y) const override;
    using NBX::Image::pixelComponents;
    const void * pixelComponents(int x, int y, int component = 0) const override;

    /// Bytes of the block that all of them share; 0 when there are none.
    static unsigned scratchBytes();

private:
    int m_width, m_height;
};

} // namespace ZMT::UTIL
