#pragma once

#include <optional>

#include <nbx/image/imageheader.h>

namespace NBX {

class DataResource;

/// Decodes PNG files to `LS_Luminance`, `LS_LuminanceAlpha`, `LS_RGB` or `LS_RGBA` of 8 or 16 bits. Palettes
/// become colours, transparent colours become alpha, depths below 8 bits are widened to 8.
class PNGReader : public SharedObj {
    NBX_CLASS(PNGReader, SharedObj)
public:
    /// The picture; null when the data are no whole PNG file or hold fewer bytes than its size could need.
    SO<Image> read(const DataResource * data);

    /// What the picture is, by the parts in front of its pixels alone; none for other data.
    static std::optional<ImageHeader> readHeader(const DataResource * data);
    /// True when the data begin like a PNG file.
    static bool recognizes(const DataResource * data);
};

} // namespace NBX
