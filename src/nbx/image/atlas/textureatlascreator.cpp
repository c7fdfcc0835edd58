// One area: ways to pack that are good at different things, tried from the quickest to the slowest, each also
// with both directions exchanged. Best fit adds nothing to them there. Many areas: what suits best of all
// that is left, page after page.

#include <nbx/image/atlas/textureatlascreator.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include <nbx/container/sequence/array.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/subimage.h>
#include <nbx/object/errorhandler.h>

#include "bestfitpacking.h"
#include "freerectanglepacking.h"
#include "skylinepacking.h"

namespace NBX {

namespace {

using Matrix = Matrix4x4Base<double>;

/// Up to here the closest way to pack takes milliseconds.
constexpr std::size_t s_fewRectangles = 512;

PackedSize exchanged(PackedSize size) {
    return {size.height, size.width};
}

/// Areas count their pixels in `int`.
unsigned extentOfArea(unsigned pixels) {
    return std::min(pixels, unsigned(std::numeric_limits<int>::max()));
}

/// False when the sizes cannot fit, whatever the way to pack.
bool couldFit(std::span<const PackedSize> sizes, PackedSize page) {
    std::uint64_t left = std::uint64_t(page.width) * page.height;
    for (const PackedSize size : sizes) {
        const std::uint64_t area = std::uint64_t(size.width) * size.height;
        if (size.width > page.width || size.height > page.height || area > left) return false;
        left -= area;
    }
    return true;
}

/// Calls a way to pack with rows, then with columns in the place of rows.
template <class Pack>
bool packBothWays(Pack pack, std::span<const PackedSize> sizes, PackedSize page,
                  std::vector<PackedPlace> & places) {
    if (pack(sizes, page, places)) return true;
    std::vector<PackedSize> turned(sizes.size());
    std::transform(sizes.begin(), sizes.end(), turned.begin(), exchanged);
    if (!pack(turned, exchanged(page), places)) return false;
    for (PackedPlace & place : places)
        std::swap(place.x, place.y);
    return true;
}

bool packOnOnePage(std::span<const PackedSize> sizes, PackedSize page, std::vector<PackedPlace> & places) {
    if (!couldFit(sizes, page)) return false;
    for (const SkylineTie tie : {SkylineTie::LeastWaste, SkylineTie::Leftmost}) {
        const auto pack = [tie](auto of, PackedSize on, auto & to) { return packOnSkyline(of, on, tie, to); };
        if (packBothWays(pack, sizes, page, places)) return true;
    }
    return sizes.size() <= s_fewRectangles && packBothWays(packInFreeRectangles, sizes, page, places);
}

/// The picture turned counter-clockwise by a quarter.
SO<Image> newTurned(Image & image) {
    const SO<Image> source = image.uncompressed(false);
    SO<Image> turned(
        new MemoryImage(source->height(), source->width(), source->layerSequence(), source->dataType()));
    const auto bytes = static_cast<std::size_t>(source->bitsPerPixel()) / 8;
    for (int y = 0; y < source->height(); ++y)
        for (int x = 0; x < source->width(); ++x)
            std::memcpy(turned->pixelComponents(source->height() - 1 - y, x),
                        std::as_const(*source).pixelComponents(x, y), bytes);
    return turned;
}

} // namespace

SO<Iterator<Area>> TextureAtlasCreator::createSubImagePlacement(const Sizes * sizes, unsigned width,
                                                                unsigned height) {
    NBX_CHECK(sizes, L"no sizes");
    if (!sizes) return nullptr;
    std::vector<Area> areas;
    std::vector<PackedSize> packed;
    for (const auto & [w, h] : *sizes) {
        areas.emplace_back(0, 0, w, h);
        if (w > width || h > height) return nullptr;
        if (w > 0 && h > 0) packed.push_back({w, h});
    }
    std::vector<PackedPlace> places;
    if (!packOnOnePage(packed, {extentOfArea(width), extentOfArea(height)}, places)) return nullptr;
    auto place = places.begin();
    for (Area & area : areas) {
        if (area.getWidth() == 0 || area.getHeight() == 0) continue;
        area.setX(static_cast<int>(place->x));
        area.setY(static_cast<int>(place->y));
        ++place;
    }
    return new NonPersistentArray<Area>(std::move(areas));
}

TextureAtlasCreator::TextureAtlasCreator(const Iterator<SO<Image>> * images, unsigned maxWidth,
                                         unsigned maxHeight) {
    NBX_CHECK(images, L"no images");
    if (!images) return;
    maxWidth = extentOfArea(maxWidth);
    maxHeight = extentOfArea(maxHeight);
    images_.assign(images->begin(), images->end());
    places_.resize(images_.size());
    std::vector<unsigned> fitting;
    for (unsigned i = 0; i < images_.size(); ++i) {
        const Image * image = images_[i].get();
        const bool hasPixels = image && image->width() > 0 && image->height() > 0;
        NBX_CHECK(hasPixels, L"image " << i << L" has no pixels");
        if (!hasPixels) continue;
        const auto width = static_cast<unsigned>(image->width()),
                   height = static_cast<unsigned>(image->height());
        const bool fits = width <= maxWidth && height <= maxHeight;
        const bool fitsTurned = height <= maxWidth && width <= maxHeight;
        NBX_CHECK(fits || fitsTurned,
                  L"image " << i << L" of " << width << L" by " << height << L" is larger than the atlas");
        if (!fits && !fitsTurned) continue;
        places_[i].isTurned = !fits;
        places_[i].area = fits ? Area(0, 0, width, height) : Area(0, 0, height, width);
        fitting.push_back(i);
    }
    fillAtlases(fitting, maxWidth, maxHeight);
}

void TextureAtlasCreator::fillAtlases(const std::vector<unsigned> & images, unsigned maxWidth,
                                      unsigned maxHeight) {
    std::vector<PackedSize> sizes;
    sizes.reserve(images.size());
    for (const unsigned i : images)
        sizes.push_back({places_[i].area.getWidth(), places_[i].area.getHeight()});
    std::vector<PackedPlace> corners;
    BestFitPacking packing(sizes, {maxWidth, maxHeight});
    while (packing.left() > 0) {
        Atlas atlas;
        for (const unsigned k : packing.fillPage(corners)) {
            Place & place = places_[images[k]];
            place.isPlaced = true;
            place.atlas = atlases();
            place.area.setX(static_cast<int>(corners[k].x));
            place.area.setY(static_cast<int>(corners[k].y));
            atlas.width = std::max(atlas.width, corners[k].x + sizes[k].width);
            atlas.height = std::max(atlas.height, corners[k].y + sizes[k].height);
            atlas.images.push_back(images[k]);
        }
        std::sort(atlas.images.begin(), atlas.images.end());
        atlases_.push_back(std::move(atlas));
    }
}

SO<Iterator<unsigned>> TextureAtlasCreator::imagesOnAtlas(unsigned atlas) const {
    NBX_CHECK(atlas < atlases(), L"atlas out of range");
    if (atlas >= atlases()) return nullptr;
    return new Array<unsigned>(atlases_[atlas].images);
}

Area TextureAtlasCreator::atlasArea(unsigned atlas) const {
    NBX_CHECK(atlas < atlases(), L"atlas out of range");
    return atlas < atlases() ? Area(0, 0, atlases_[atlas].width, atlases_[atlas].height) : Area();
}

SO<Image> TextureAtlasCreator::newEmptyAtlas(const Atlas & atlas) const {
    const Image & first = *images_[atlas.images.front()];
    const bool isOneKind = std::all_of(atlas.images.begin(), atlas.images.end(), [&](unsigned i) {
        return images_[i]->layerSequence() == first.layerSequence() &&
               images_[i]->dataType() == first.dataType();
    });
    return new MemoryImage(static_cast<int>(atlas.width), static_cast<int>(atlas.height),
                           isOneKind ? first.layerSequence() : LS_RGBA,
                           isOneKind ? first.dataType() : Image::UInt8);
}

SO<Image> TextureAtlasCreator::newAtlasImage(unsigned atlas) const {
    NBX_CHECK(atlas < atlases(), L"atlas out of range");
    if (atlas >= atlases()) return nullptr;
    SO<Image> picture = newEmptyAtlas(atlases_[atlas]);
    if (picture->width() <= 0) return nullptr;
    for (const unsigned i : atlases_[atlas].images) {
        const SO<Image> image = places_[i].isTurned ? newTurned(*images_[i]) : images_[i];
        const SO<SubImage> place(new SubImage(picture.get(), places_[i].area));
        place->copy(image.get());
    }
    return picture;
}

bool TextureAtlasCreator::isPlaced(unsigned image) const {
    NBX_CHECK(image < places_.size(), L"image out of range");
    return image < places_.size() && places_[image].isPlaced;
}

Matrix4x4Base<double> TextureAtlasCreator::placement(unsigned image) const {
    if (!isPlaced(image)) return Matrix();
    const Place & place = places_[image];
    const double width = atlases_[place.atlas].width, height = atlases_[place.atlas].height;
    const double x = place.area.getX() / width, y = place.area.getY() / height;
    const double w = place.area.getWidth() / width, h = place.area.getHeight() / height;
    if (place.isTurned) return Matrix({0, -w, 0, x + w, h, 0, 0, y, 0, 0, 1, 0, 0, 0, 0, 1});
    return Matrix({w, 0, 0, x, 0, h, 0, y, 0, 0, 1, 0, 0, 0, 0, 1});
}

} // namespace NBX
