#pragma once

#include <nbx/data/objectwriter.h>
#include <nbx/image/image.h>

namespace NBX {

/// Writes images to files, as JPEG of quality 90 where the suffix is "jpg" or "jpeg", otherwise as PNG.
/// Installed with `ObjectSaver`.
class ImageWriter : public ObjectWriter {
    NBX_CLASS(ImageWriter, ObjectWriter)
public:
    bool canWrite(const SharedObj * object) const override;
    std::string objectFileSuffix() const override;
    std::string objectFormatName() const override;
    /// Throws `IOException`, also for an image without pixels.
    void write(const SharedObj * object, const std::string & path) override;
};

} // namespace NBX
