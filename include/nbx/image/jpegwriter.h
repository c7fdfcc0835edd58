#pragma once

#include <nbx/image/image.h>

namespace NBX {

class MemoryDataResource;

/// Encodes images as JPEG files: grey for images of one colour layer, else colour; alpha is left out.
class JPEGWriter : public SharedObj {
    NBX_CLASS(JPEGWriter, SharedObj)
public:
    /// `quality` is from 1 to 100.
    explicit JPEGWriter(int quality = 75);

    int quality() const { return quality_; }
    /// The file; null when the image is null or empty, or a side is above 65500.
    SO<MemoryDataResource> write(const Image * image);

private:
    int quality_;
};

} // namespace NBX
