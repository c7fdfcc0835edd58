#include <nbx/image/fileimage.h>

#include <limits>

#include <nbx/data/file.h>
#include <nbx/data/filedataresource.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>

#include "storage.h"

namespace NBX {

NBX_CLASS_IMPL(FileImage, Image)

FileImage::FileImage(const std::string & path, int width, int height, LayerSequence sequence, int dataType,
                     int alignment, MemoryLayout layout)
    : Image(sequence, dataType) {
    const std::size_t bytes = checkedImageBytes(width, height, layerSequence(), this->dataType(), alignment,
                                                layout, std::numeric_limits<unsigned>::max());
    if (!bytes) return;
    try {
        pixels_ = new FileDataResource(path, static_cast<unsigned>(bytes), true, true);
    } catch (const IOException & e) {
        NBX_FAILURE(L"cannot make the file of an image: " << e.message() << L" " << e.what());
        return;
    }
    width_ = width;
    height_ = height;
    alignment_ = alignment;
    pitch_ = bytesPerLine(width, layerSequence(), this->dataType(), alignment);
}

FileImage::~FileImage() = default;

SO<FileImage> FileImage::newTemporary(const std::string & prefix, int width, int height,
                                      LayerSequence sequence) {
    try {
        const std::string path = File::temporaryFileName(prefix);
        const SO<FileImage> image(new FileImage(path, width, height, sequence));
        File::remove(path);
        return image->pixels_ ? image : nullptr;
    } catch (const IOException & e) {
        NBX_FAILURE(L"cannot make the file of an image: " << e.message() << L" " << e.what());
        return nullptr;
    }
}

int FileImage::padding() const {
    return static_cast<int>(pitch_ - bytesPerLine(width_, layerSequence(), dataType(), 1));
}

const void * FileImage::lineComponents(int y) const {
    NBX_CHECK_RANGE(0, y, height_);
    if (y < 0 || y >= height_) return nullptr;
    return static_cast<const unsigned char *>(pixels_->pointer()) + static_cast<std::size_t>(y) * pitch_;
}

} // namespace NBX
