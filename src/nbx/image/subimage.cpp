#include <nbx/image/subimage.h>

#include <algorithm>
#include <cstdint>

#include <nbx/math/area.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(SubImage, Image)

namespace {

/// Cuts [first, first + count) to [0, size).
void clip(int & first, std::int64_t count, int size, int & result) {
    const std::int64_t end = std::min<std::int64_t>(first + count, size);
    first = std::clamp(first, 0, size);
    result = static_cast<int>(std::max<std::int64_t>(end - first, 0));
}

} // namespace

SubImage::SubImage(Image * image, const Area & area)
    : Image(image ? image->layerSequence() : LS_Luminance,
            image ? image->dataType() : static_cast<int>(UInt8)),
      image_(image), x_(area.getX()), y_(area.getY()) {
    NBX_CHECK(image, L"no image");
    if (!image) return;
    clip(x_, area.getWidth(), image->width(), width_);
    clip(y_, area.getHeight(), image->height(), height_);
    NBX_CHECK(area == Area(x_, y_, static_cast<unsigned>(width_), static_cast<unsigned>(height_)) &&
                  !isEmpty(),
              L"area does not lie in the image: " << area.getX() << L", " << area.getY() << L", "
                                                  << area.getWidth() << L" x " << area.getHeight());
}

int SubImage::padding() const {
    if (!image_) return 0;
    return image_->padding() + (image_->width() - width_) * (bitsPerPixel() / 8);
}

const void * SubImage::lineComponents(int y) const {
    NBX_CHECK_RANGE(0, y, height_);
    if (y < 0 || y >= height_) return nullptr;
    const Image & image = *image_;
    const auto * line = static_cast<const unsigned char *>(image.lineComponents(y_ + y));
    return line ? line + static_cast<std::size_t>(x_) * (bitsPerPixel() / 8) : nullptr;
}

} // namespace NBX
