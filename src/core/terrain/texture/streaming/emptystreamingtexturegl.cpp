#include "emptystreamingtexturegl.h"

#include <GL/glew.h>

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>

namespace ZMT::CORE {

namespace {

NBX::SO<NBX::TextureGL> makeTexture() {
    const NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(1, 1, NBX::LS_RGBA, NBX::Image::UInt8));
    const NBX::Color transparent(1.0F, 1.0F, 1.0F, 0.0F);
    image->setColor(0, 0, transparent);
    NBX::SO<NBX::ImageTexture2DGL> texture(
        new NBX::ImageTexture2DGL(image, NBX::TextureGL::WM_Repeat, NBX::TextureGL::WM_Repeat));
    texture->setInternalFormat(GL_COMPRESSED_RGBA_ARB);
    texture->setBorderColor(transparent);
    texture->unrefImageAfterBinding();
    return texture;
}

} // namespace

const NBX::SO<NBX::TextureGL> & EmptyStreamingTextureGL::texture() {
    static const NBX::SO<NBX::TextureGL> & instance = *new NBX::SO<NBX::TextureGL>(makeTexture());
    return instance;
}

} // namespace ZMT::CORE
