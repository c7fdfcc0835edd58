#pragma once

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/object/so.h>

namespace ZMT::CORE {

/// What a texture shows on a patch outside its data: nothing. It leaves the patch as the lower effects left
/// it.
class EmptyTexture {
public:
    /// One transparent white texel with a border alike; the same object for all, to the end of the process.
    /// Any thread may ask for it.
    static const NBX::SO<NBX::TextureGL> & texture();
    /// Another one like it.
    static NBX::SO<NBX::ImageTexture2DGL> newTexture();
};

} // namespace ZMT::CORE
