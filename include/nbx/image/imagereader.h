#pragma once

#include <nbx/data/objectreader.h>
#include <nbx/image/image.h>

namespace NBX {

/// Reads images of all formats that are known: JPEG, PNG, and the raw data of a `CompressedImage`. Installed
/// for files with `ObjectLoader`. May be used from any thread.
class ImageReader : public ObjectReader {
    NBX_CLASS(ImageReader, ObjectReader)
public:
    /// The image, or null when the data are unusable. `format` is "jpg", "jpeg", "png" or "cprs", in small
    /// letters; for any other, the empty one included, the first bytes tell the format.
    static SO<Image> read(DataResource * data, const ID & format);

    bool canProduce(const ID & className) const override;
    std::string objectFileSuffix() const override;
    std::string objectFormatName() const override;
    SO<SharedObj> read(DataResource * resource) override;
};

} // namespace NBX
