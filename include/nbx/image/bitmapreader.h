#pragma once

#include <optional>

#include <nbx/image/imageheader.h>

namespace NBX {

class DataResource;

/// Decodes BMP files without run lengths and TGA files to `LS_Luminance`, `LS_LuminanceAlpha`, `LS_RGB` or
/// `LS_RGBA` of 8 bits. One instance belongs to one thread.
class BitmapReader : public SharedObj {
    NBX_CLASS(BitmapReader, SharedObj)
public:
    /// The picture; null when the data are no whole file of these formats or hold fewer bytes than its size
    /// could need.
    SO<Image> read(const DataResource * data);

    /// What `read` would give, by the first bytes alone; none for other data.
    static std::optional<ImageHeader> readHeader(const DataResource * data);
    /// True when the data begin like a BMP or a TGA file. The latter have no mark: fields that fit are taken
    /// for one.
    static bool recognizes(const DataResource * data) { return readHeader(data).has_value(); }
};

} // namespace NBX
