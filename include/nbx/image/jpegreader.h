#pragma once

#include <nbx/image/image.h>

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

    /// True when the data begin like a JPEG file.
    static bool recognizes(const DataResource * data);

private:
    bool progressBarEnabled_ = true;
};

} // namespace NBX
