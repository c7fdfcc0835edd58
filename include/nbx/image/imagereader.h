#pragma once

#include <optional>

#include <nbx/data/objectreader.h>
#include <nbx/image/imageheader.h>

namespace NBX {

/// Reads images of all formats that are known: JPEG, PNG, BMP, TGA, and the raw data of a `CompressedImage`.
/// Installed for files with `ObjectLoader`. May be used from any thread.
class ImageReader : public ObjectReader {
    NBX_CLASS(ImageReader, ObjectReader)
public:
    /// The image, or null when the data are unusable. `format` is "jpg", "jpeg", "png", "bmp", "tga" or
    /// "cprs", in small letters; for any other, the empty one included, the first bytes tell the format.
    static SO<Image> read(DataResource * data, const ID & format);

    /// What `read` would give, without decoding a pixel, as far as the first bytes tell; none for other data.
    static std::optional<ImageHeader> readHeader(DataResource * data);

    bool canProduce(const ID & className) const override;
    std::string objectFileSuffix() const override;
    std::string objectFormatName() const override;
    SO<SharedObj> read(DataResource * resource) override;
};

} // namespace NBX
