#pragma once

#include <nbx/gl/texture/texturegl.h>
#include <nbx/object/so.h>

namespace ZMT::CORE {

/// What a streaming texture shows before it has anything to show: one transparent white texel that the driver
/// may compress; the same object for all, to the end of the process.
class EmptyStreamingTextureGL {
public:
    static const NBX::SO<NBX::TextureGL> & texture();
};

} // namespace ZMT::CORE
