#pragma once

namespace NBX {

class Image;

/// How OpenGL names the pixels of an image, and the transfer of its lines.
class ImageOpenGLTool {
public:
    /// The pixel format, such as GL_BGRA.
    static unsigned format(const Image * image);
    /// The component type, such as GL_UNSIGNED_SHORT.
    static unsigned type(const Image * image);
    /// The internal format of a texture without loss of the image's layers and precision.
    static unsigned internalFormat(const Image * image);

    /// Sets how lines lie in memory, for sending (`pack` false) or reading (`pack` true). False when the
    /// lines do not lie evenly, as OpenGL needs it for a transfer in one call; the modes are then for one
    /// line. A buffer bound as pixel source or target is left bound.
    static bool setPixelStoreModes(const Image * image, bool pack);

    /// Sends the image to level `level` of the texture bound to GL_TEXTURE_2D. The pixel store modes and the
    /// bound pixel buffer are as before afterwards.
    static void textureImage2D(const Image * image, int level, unsigned internalFormat);
};

} // namespace NBX
