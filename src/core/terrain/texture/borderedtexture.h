#pragma once

#include <nbx/gl/texture/imagetexture2dgl.h>

namespace ZMT::CORE {

/// A texture of an image beyond whose edge lies nothing: transparent white. The image leaves main memory once
/// the driver has it.
///
/// OpenGL ignores the alpha of the border of a texture that has none itself. So an image of integers gets
/// one, while the texture goes on to count as what it was: whatever takes a factor from it takes its
/// luminance.
class BorderedTexture : public NBX::ImageTexture2DGL {
    NBX_CLASS(BorderedTexture, NBX::ImageTexture2DGL)
public:
    explicit BorderedTexture(const NBX::SO<NBX::Image> & image);
    ~BorderedTexture() override;

    Channels channels() const override { return channels_; }

private:
    const Channels channels_;
};

} // namespace ZMT::CORE
