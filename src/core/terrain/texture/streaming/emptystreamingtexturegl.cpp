#include "emptystreamingtexturegl.h"

#include <GL/glew.h>

#include "core/terrain/texture/emptytexture.h"

namespace ZMT::CORE {

namespace {

NBX::SO<NBX::TextureGL> makeTexture() {
    const NBX::SO<NBX::ImageTexture2DGL> texture = EmptyTexture::newTexture();
    texture->setInternalFormat(GL_COMPRESSED_RGBA_ARB);
    return texture;
}

} // namespace

const NBX::SO<NBX::TextureGL> & EmptyStreamingTextureGL::texture() {
    static const NBX::SO<NBX::TextureGL> & instance = *new NBX::SO<NBX::TextureGL>(makeTexture());
    return instance;
}

} // namespace ZMT::CORE
