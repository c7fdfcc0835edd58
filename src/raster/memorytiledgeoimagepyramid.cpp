#include <zmt/raster/memorytiledgeoimagepyramid.h>

#include <algorithm>
#include <cmath>

#include "memorytiledgeoimage.h"
#include <nbx/image/image.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>
#include <zmt/raster/colormaskedtiledgeoimage.h>
#include <zmt/raster/pixelblocks.h>

namespace ZMT::RASTER {

NBX_STORED_CLASS_IMPL(MemoryTiledGeoImagePyramid, TiledGeoImagePyramid)

namespace {

bool hasArea(const NBX::Bounds & box) {
    const NBX::Vector3Base<double> size = box.isDefined() ? box.diagonal() : NBX::Vector3Base<double>();
    return size.x > 0.0 && size.y > 0.0 && std::isfinite(size.x) && std::isfinite(size.y);
}

NBX::SO<NBX::Image> halved(const NBX::Image & image) {
    const auto half = [](int size) { return PixelBlocks::halved(static_cast<unsigned>(size)); };
    NBX::SO<NBX::Image> result = PixelBlocks::newImage(half(image.width()), half(image.height()),
                                                       image.layerSequence(), image.dataType());
    if (result)
        PixelBlocks::reduce(image, {0.0, 0.0, image.width() + 0.0, image.height() + 0.0}, *result, 0, 0,
                            result->width(), result->height());
    return result;
}

} // namespace

MemoryTiledGeoImagePyramid::MemoryTiledGeoImagePyramid() = default;
MemoryTiledGeoImagePyramid::~MemoryTiledGeoImagePyramid() = default;

MemoryTiledGeoImagePyramid::MemoryTiledGeoImagePyramid(NBX::Image * image, const NBX::Bounds & box,
                                                       bool masked, const NBX::Color & maskColor)
    : image_(image), box_(box), masked_(masked), maskColor_(maskColor) {
    NBX_CHECK(image, L"no image");
    NBX_CHECK(hasArea(box), L"the box of an image has no area");
    buildLevels();
}

void MemoryTiledGeoImagePyramid::buildLevels() {
    levels_.clear();
    if (!image_ || image_->width() <= 0 || image_->height() <= 0 || !hasArea(box_)) return;
    const GeoExtent extent = {minX(), minY(), maxX(), maxY()};
    NBX::SO<NBX::Image> image = image_->uncompressed(false);
    if (masked_) image = ColorMaskedTiledGeoImage::masked(image.get(), maskColor_);
    while (image) {
        levels_.emplace_back(new MemoryTiledGeoImage(image.get(), extent));
        image = image->width() > 1 || image->height() > 1 ? halved(*image) : nullptr;
    }
}

NBX::SO<TiledGeoImage> MemoryTiledGeoImagePyramid::overview(unsigned index) const {
    NBX_CHECK(index < levels_.size(), L"no such level: " << index);
    return index < levels_.size() ? levels_[index] : nullptr;
}

void MemoryTiledGeoImagePyramid::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TiledGeoImagePyramid>(m, this);
    m.attribute("image", image_);
    m.attribute("box", box_);
    attributeWithDefault(m, "masked", masked_, false);
    for (unsigned i = 0; i < 4; ++i) {
        const char * names[] = {"maskRed", "maskGreen", "maskBlue", "maskAlpha"};
        attributeWithDefault(m, names[i], maskColor_[i], i < 3 ? 0.0F : 1.0F);
    }
    if (m.isReading()) buildLevels();
}

} // namespace ZMT::RASTER
