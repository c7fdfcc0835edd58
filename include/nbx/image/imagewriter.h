#pragma once

#include <string>

#include <nbx/data/memorydataresource.h>
#include <nbx/data/objectwriter.h>
#include <nbx/image/image.h>

namespace NBX {

/// Writes images to files, as JPEG of quality 90 where the suffix is "jpg" or "jpeg", otherwise as PNG.
/// Installed with `ObjectSaver`.
class ImageWriter : public ObjectWriter {
    NBX_CLASS(ImageWriter, ObjectWriter)
public:
    /// Whether a file of this name is JPEG; all others are PNG.
    static bool isJPEG(const std::string & path);
    /// The bytes of a file of this name. Null for an image without pixels.
    static SO<MemoryDataResource> encode(const Image * image, const std::string & path);

    bool canWrite(const SharedObj * object) const override;
    std::string objectFileSuffix() const override;
    std::string objectFormatName() const override;
    /// Throws `IOException`, also for an image without pixels.
    void write(const SharedObj * object, const std::string & path) override;
};

} // namespace NBX
