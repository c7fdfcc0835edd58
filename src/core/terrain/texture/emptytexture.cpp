#include "emptytexture.h"

#include <nbx/image/memoryimage.h>

namespace ZMT::CORE {

NBX::SO<NBX::ImageTexture2DGL> EmptyTexture::newTexture() {
    const NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(1, 1, NBX::LS_RGBA, NBX::Image::UInt8));
    const NBX::Color transparent(1.0F, 1.0F, 1.0F, 0.0F);
    image->setColor(0, 0, transparent);
    NBX::SO<NBX::ImageTexture2DGL> texture(
        new NBX::ImageTexture2DGL(image, NBX::TextureGL::WM_Repeat, NBX::TextureGL::WM_Repeat));
    texture->setBorderColor(transparent);
    texture->unrefImageAfterBinding();
    return texture;
}

const NBX::SO<NBX::TextureGL> & EmptyTexture::texture() {
    // Never destroyed: a worker may still ask for it while the process ends.
    static const NBX::SO<NBX::TextureGL> & instance = *new NBX::SO<NBX::TextureGL>(newTexture());
    return instance;
}

} // namespace ZMT::CORE
