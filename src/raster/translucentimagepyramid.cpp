#include <zmt/raster/translucentimagepyramid.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>
#include <zmt/raster/decoratedtiledgeoimage.h>

namespace ZMT::RASTER {

NBX_STORED_CLASS_IMPL(TranslucentImagePyramid, TiledGeoImagePyramid)

/// One level; it keeps that of the source.
class TranslucentImagePyramid::Level : public DecoratedTiledGeoImage {
    NBX_TEMPLATE_CLASS(Level, DecoratedTiledGeoImage)
public:
    Level(TiledGeoImage * image, double opacity) : DecoratedTiledGeoImage(image) {
        for (std::size_t i = 0; i < alpha_.size(); ++i)
            alpha_[i] = static_cast<std::uint8_t>(std::lround(opacity * static_cast<double>(i)));
    }

    unsigned bands() const override { return 4; }
    NBX::SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const override {
        // There is an alpha channel, whatever the source has.
        return TiledGeoImage::createEmptyImage(width, height); // NOLINT(bugprone-parent-virtual-call)
    }
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;

private:
    std::array<std::uint8_t, 256> alpha_{}; ///< by that of the source
};

NBX::SO<NBX::Image> TranslucentImagePyramid::Level::getImage(int x, int y, unsigned width,
                                                             unsigned height) const {
    const NBX::SO<NBX::Image> image = DecoratedTiledGeoImage::getImage(x, y, width, height);
    if (!image) return nullptr;
    NBX::SO<NBX::Image> result(new NBX::MemoryImage(image->width(), image->height(), NBX::LS_RGBA));
    if (!result->copy(image.get())) return nullptr;
    for (int line = 0; line < result->height(); ++line) {
        unsigned char * pixel = result->lineComponentsU8(line);
        for (int i = 0; i < result->width(); ++i, pixel += 4)
            pixel[3] = alpha_[pixel[3]];
    }
    return result;
}

TranslucentImagePyramid::TranslucentImagePyramid() = default;

TranslucentImagePyramid::TranslucentImagePyramid(TiledGeoImagePyramid * source, double opacity)
    : source_(source), opacity_(opacity) {
    NBX_CHECK(source, L"no image");
    const bool isShare = opacity >= 0.0 && opacity <= 1.0;
    NBX_CHECK(isShare, L"the opacity is not from 0 to 1");
    if (!isShare) opacity_ = opacity > 1.0 ? 1.0 : 0.0;
}

TranslucentImagePyramid::~TranslucentImagePyramid() = default;

double TranslucentImagePyramid::minX() const {
    return source_ ? source_->minX() : 0.0;
}

double TranslucentImagePyramid::minY() const {
    return source_ ? source_->minY() : 0.0;
}

double TranslucentImagePyramid::maxX() const {
    return source_ ? source_->maxX() : 0.0;
}

double TranslucentImagePyramid::maxY() const {
    return source_ ? source_->maxY() : 0.0;
}

unsigned TranslucentImagePyramid::overviews() const {
    return source_ ? source_->overviews() : 0;
}

NBX::SO<TiledGeoImage> TranslucentImagePyramid::overview(unsigned index) const {
    const NBX::SO<TiledGeoImage> level = source_ ? source_->overview(index) : nullptr;
    return level ? new Level(level.get(), opacity_) : nullptr;
}

void TranslucentImagePyramid::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TiledGeoImagePyramid>(m, this);
    m.attribute("source", source_);
    attributeWithDefault(m, "opacity", opacity_, 1.0);
    if (m.isReading() && !(opacity_ >= 0.0 && opacity_ <= 1.0)) opacity_ = opacity_ > 1.0 ? 1.0 : 0.0;
}

} // namespace ZMT::RASTER
