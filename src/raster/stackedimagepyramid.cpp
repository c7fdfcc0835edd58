#include <zmt/raster/stackedimagepyramid.h>

#include <algorithm>

#include <nbx/object/errorhandler.h>
#include <zmt/raster/tiledgeoimage.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(StackedImagePyramid, TiledGeoImagePyramid)

StackedImagePyramid::StackedImagePyramid(TiledGeoImagePyramid * fine, unsigned count,
                                         TiledGeoImagePyramid * coarse)
    : fine_(fine), coarse_(coarse) {
    NBX_CHECK(fine && coarse, L"no image");
    for (unsigned i = 0; fine && i < std::min(count, fine->overviews()); ++i)
        levels_.push_back(fine->overview(i));
    for (unsigned i = 0; coarse && i < coarse->overviews(); ++i) {
        const NBX::SO<TiledGeoImage> level = coarse->overview(i);
        const bool isSmaller = levels_.empty() || level->pixelsX() < levels_.back()->pixelsX() ||
                               level->pixelsY() < levels_.back()->pixelsY();
        if (isSmaller) levels_.push_back(level);
    }
}

StackedImagePyramid::~StackedImagePyramid() = default;

double StackedImagePyramid::minX() const {
    return fine_ ? fine_->minX() : 0.0;
}

double StackedImagePyramid::minY() const {
    return fine_ ? fine_->minY() : 0.0;
}

double StackedImagePyramid::maxX() const {
    return fine_ ? fine_->maxX() : 0.0;
}

double StackedImagePyramid::maxY() const {
    return fine_ ? fine_->maxY() : 0.0;
}

NBX::SO<TiledGeoImage> StackedImagePyramid::overview(unsigned index) const {
    NBX_CHECK(index < levels_.size(), L"no such level: " << index);
    return index < levels_.size() ? levels_[index] : nullptr;
}

} // namespace ZMT::RASTER
