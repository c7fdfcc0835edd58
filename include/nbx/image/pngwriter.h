#pragma once

#include <nbx/image/image.h>

namespace NBX {

class MemoryDataResource;

/// Encodes images as PNG files without loss: 16 bits a component for `UInt16`, `Half` and `Float` (cut to 0
/// to 1), else 8.
class PNGWriter : public SharedObj {
    NBX_CLASS(PNGWriter, SharedObj)
public:
    /// `level` of deflation is from 0 to 9.
    explicit PNGWriter(int level = 6);

    int level() const { return level_; }
    /// The file; null when the image is null or empty.
    SO<MemoryDataResource> write(const Image * image);

private:
    int level_;
};

} // namespace NBX
