#pragma once

#include <utility>
#include <vector>

#include <nbx/container/sequence/iterator.h>
#include <nbx/image/image.h>
#include <nbx/math/area.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/so.h>

namespace NBX {

/// Puts many rectangles on few large ones. The same rectangles always come to lie the same way.
///
/// (1) No two rectangles overlap, and each lies within its atlas, whole.
/// (2) A placement keeps the sizes that it was asked for.
class TextureAtlasCreator {
public:
    using Sizes = Iterator<std::pair<unsigned, unsigned>>;

    /// A place for each of `sizes` (width, height), in their order and never turned, on one area of `width`
    /// by `height`, which begins at 0, 0. A size without extent lies at 0, 0. Null when no way was found in
    /// which all of them fit, as for one that is larger than the area, and, reported, without sizes.
    static SO<Iterator<Area>> createSubImagePlacement(const Sizes * sizes, unsigned width, unsigned height);

    /// Puts images on as many atlases as they need, each of at most `maxWidth` by `maxHeight` pixels. An
    /// image that fits only on its side is turned by a quarter. One that does not fit at all is reported and
    /// left out, as are null and an image without pixels. The images are kept.
    TextureAtlasCreator(const Iterator<SO<Image>> * images, unsigned maxWidth, unsigned maxHeight);

    unsigned atlases() const { return static_cast<unsigned>(atlases_.size()); }
    /// The numbers of the images on an atlas. Null, and reported, for one that does not exist.
    SO<Iterator<unsigned>> imagesOnAtlas(unsigned atlas) const;
    /// The size of an atlas, just large enough for its images.
    Area atlasArea(unsigned atlas) const;
    /// The picture of an atlas, drawn anew: with the layers and the component type of its images where they
    /// are of one kind, else with 8 bits of RGBA. Null, and reported, for an atlas that does not exist.
    SO<Image> newAtlasImage(unsigned atlas) const;

    /// False for an image that was left out.
    bool isPlaced(unsigned image) const;
    /// From coordinates of an image, 0 to 1 in x and y, to those of its atlas. The identity for an image that
    /// was left out.
    Matrix4x4Base<double> placement(unsigned image) const;

private:
    struct Place {
        Area area; ///< in pixels of the atlas; as it lies there
        unsigned atlas = 0;
        bool isPlaced = false;
        bool isTurned = false;
    };
    struct Atlas {
        std::vector<unsigned> images;
        unsigned width = 0, height = 0;
    };

    void fillAtlases(const std::vector<unsigned> & images, unsigned maxWidth, unsigned maxHeight);
    SO<Image> newEmptyAtlas(const Atlas & atlas) const;

    std::vector<SO<Image>> images_;
    std::vector<Place> places_;
    std::vector<Atlas> atlases_;
};

} // namespace NBX
