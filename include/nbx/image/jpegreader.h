#pragma once

#include <cstdint>
#include <optional>

#include <nbx/image/imageheader.h>

namespace NBX {

class DataResource;

/// Decodes JPEG files to `LS_Luminance` or `LS_RGB` of 8 bits. One instance belongs to one thread.
class JPEGReader : public SharedObj {
    NBX_CLASS(JPEGReader, SharedObj)
public:
    /// The picture; null when the data are no whole JPEG file, hold fewer bytes than its size could need, or
    /// the user cancelled.
    SO<Image> read(const DataResource * data);

    /// Whether reading shows its progress; true at start.
    void setProgressBarEnabled(bool enabled) { progressBarEnabled_ = enabled; }
    bool isProgressBarEnabled() const { return progressBarEnabled_; }

    /// What the picture is, by the parts in front of its pixels alone; none for other data.
    static std::optional<ImageHeader> readHeader(const DataResource * data);
    /// A picture of more pixels is refused, whatever its bytes could hold; without it there is no such limit.
    void setMaxPixels(std::uint64_t pixels) { maxPixels_ = pixels; }

    /// True when the data begin like a JPEG file.
    static bool recognizes(const DataResource * data);

private:
    bool progressBarEnabled_ = true;
    std::uint64_t maxPixels_ = UINT64_MAX;
};

} // namespace NBX
