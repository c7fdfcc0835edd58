#pragma once

#include <string>

#include <nbx/image/image.h>

namespace NBX {

class FileDataResource;

/// Image with its pixels in a file of their own, for pictures that would crowd the main memory. The file is
/// made by the constructor and deleted with the image; the pixels start as zero.
class FileImage : public Image {
    NBX_CLASS(FileImage, Image)
public:
    /// As `MemoryImage`; besides, a file that cannot be made or a picture of 4 GiB or more is reported as a
    /// failure, and the image is then empty.
    FileImage(const std::string & path, int width, int height, LayerSequence sequence, int dataType = UInt8,
              int alignment = 1, MemoryLayout layout = ML_Interleaved);
    ~FileImage() override;

    /// An image in a temporary file whose name began with `prefix`: it has none any more, so that a process
    /// that is killed leaves nothing. Null, and reported as a failure, where the file cannot be made.
    static SO<FileImage> newTemporary(const std::string & prefix, int width, int height,
                                      LayerSequence sequence);

    int width() const override { return width_; }
    int height() const override { return height_; }
    int alignment() const override { return alignment_; }
    int padding() const override;
    using Image::lineComponents;
    const void * lineComponents(int y) const override;

private:
    int width_ = 0, height_ = 0, alignment_ = 1;
    std::size_t pitch_ = 0; ///< bytes from line to line
    SO<FileDataResource> pixels_;
};

} // namespace NBX
