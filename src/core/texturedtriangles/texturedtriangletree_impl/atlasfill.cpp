// Pull and push, after Gortler, Grzeszczuk, Szeliski, Cohen, The Lumigraph, 1996, section 3.4: each coarser
// level has the means of what is there in fours of texels, until nothing is missing; from there back to the
// finest one, what is missing is interpolated between the texels of the level above. It looks at each texel
// a few times, however large the holes are, and leaves no edges in them, which cost bytes and blur in JPEG.
// All is done in whole numbers, so that the bytes are the same everywhere.

#include "atlasfill.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

namespace {

/// A picture with holes, of rows of bytes. The finest one is that of the caller.
struct Level {
    int width, height;
    std::vector<unsigned char *> rows;
    const unsigned char * isThere; ///< 0 or 1 for each texel, row by row
    std::vector<unsigned char> ownTexels, ownIsThere;

    const unsigned char * isThereIn(int y) const { return isThere + std::size_t(y) * std::size_t(width); }
    bool hasHoles() const {
        return std::memchr(isThere, 0, std::size_t(width) * std::size_t(height)) != nullptr;
    }
};

Level finestOf(const UsedTexels & used, NBX::Image & atlas) {
    Level level{used.width(), used.height(), {}, used.bytes().data(), {}, {}};
    level.rows.reserve(std::size_t(level.height));
    for (int y = 0; y < level.height; ++y)
        level.rows.push_back(atlas.lineComponentsU8(y));
    return level;
}

Level newLevel(int width, int height, unsigned layers) {
    Level level{width, height, {}, nullptr, {}, {}};
    level.ownIsThere.resize(std::size_t(width) * std::size_t(height));
    level.ownTexels.resize(level.ownIsThere.size() * layers);
    level.isThere = level.ownIsThere.data();
    level.rows.reserve(std::size_t(height));
    for (int y = 0; y < height; ++y)
        level.rows.push_back(level.ownTexels.data() + std::size_t(y) * std::size_t(width) * layers);
    return level;
}

/// Means of those that are there. At an odd end the last ones count twice.
template <unsigned Layers> Level coarserThan(const Level & fine) {
    Level coarse = newLevel((fine.width + 1) / 2, (fine.height + 1) / 2, Layers);
    unsigned char * isThere = coarse.ownIsThere.data();
    for (int y = 0; y < coarse.height; ++y) {
        const int low = 2 * y, high = std::min(2 * y + 1, fine.height - 1);
        const unsigned char *lowThere = fine.isThereIn(low), *highThere = fine.isThereIn(high);
        unsigned char * to = coarse.rows[std::size_t(y)];
        for (int x = 0; x < coarse.width; ++x, ++isThere, to += Layers) {
            const std::size_t left = 2 * std::size_t(x),
                              right = std::min(left + 1, std::size_t(fine.width) - 1);
            const unsigned a = lowThere[left], b = lowThere[right], c = highThere[left], d = highThere[right];
            const unsigned count = a + b + c + d;
            if (count == 0) continue;
            *isThere = 1;
            const unsigned char *lowRow = fine.rows[std::size_t(low)],
                                *highRow = fine.rows[std::size_t(high)];
            const unsigned char *pa = lowRow + left * Layers, *pb = lowRow + right * Layers,
                                *pc = highRow + left * Layers, *pd = highRow + right * Layers;
            if (count == 4) // nearly everywhere
                for (unsigned i = 0; i < Layers; ++i)
                    to[i] = static_cast<unsigned char>((pa[i] + pb[i] + pc[i] + pd[i] + 2U) / 4U);
            else
                for (unsigned i = 0; i < Layers; ++i)
                    to[i] = static_cast<unsigned char>(
                        (a * pa[i] + b * pb[i] + c * pc[i] + d * pd[i] + count / 2) / count);
        }
    }
    return coarse;
}

/// Linear between the middles of texels, of which none is missing.
template <unsigned Layers> void fillFrom(const Level & coarse, Level & fine) {
    for (int y = 0; y < fine.height; ++y) {
        const unsigned char * isThere = fine.isThereIn(y);
        const int farther = std::clamp(y / 2 + (y % 2 ? 1 : -1), 0, coarse.height - 1);
        const unsigned char *near = coarse.rows[std::size_t(y / 2)], *far = coarse.rows[std::size_t(farther)];
        unsigned char * to = fine.rows[std::size_t(y)];
        for (int x = 0; x < fine.width; ++x, to += Layers) {
            if (isThere[x]) continue;
            const std::size_t at = std::size_t(x / 2) * Layers;
            const std::size_t beside =
                std::size_t(std::clamp(x / 2 + (x % 2 ? 1 : -1), 0, coarse.width - 1)) * Layers;
            for (unsigned i = 0; i < Layers; ++i)
                to[i] = static_cast<unsigned char>(
                    (9U * near[at + i] + 3U * near[beside + i] + 3U * far[at + i] + far[beside + i] + 8U) /
                    16U);
        }
    }
}

template <unsigned Layers> void fill(Level finest) {
    std::vector<Level> levels;
    levels.push_back(std::move(finest));
    while (levels.back().hasHoles())
        levels.push_back(coarserThan<Layers>(levels.back()));
    for (std::size_t i = levels.size() - 1; i-- > 0;)
        fillFrom<Layers>(levels[i + 1], levels[i]);
}

bool isFillable(const UsedTexels & used, const NBX::Image & atlas) {
    const bool isColor = atlas.layerSequence() == NBX::LS_RGBA || atlas.layerSequence() == NBX::LS_RGB;
    return isColor && atlas.dataType() == NBX::Image::UInt8 && atlas.width() == used.width() &&
           atlas.height() == used.height();
}

} // namespace

UsedTexels::UsedTexels(const NBX::Image & mask) : UsedTexels(mask.width(), mask.height()) {
    const unsigned layers = mask.numberOfLayers();
    auto to = used_.begin();
    for (int y = 0; y < height_; ++y)
        for (int x = 0; x < width_; ++x)
            *to++ = mask.lineComponentsU8(y)[std::size_t(x) * layers] > 127;
}

void UsedTexels::add(const NBX::Area & area) {
    for (unsigned y = 0; y < area.getHeight(); ++y)
        std::fill_n(used_.begin() + (std::ptrdiff_t(area.getY()) + y) * width_ + area.getX(), area.getWidth(),
                    1);
}

void fillUnusedTexels(const UsedTexels & used, NBX::Image & atlas) {
    NBX_CHECK(isFillable(used, atlas), L"no atlas");
    if (!isFillable(used, atlas)) return;
    const bool isBlank = !std::memchr(used.bytes().data(), 1, used.bytes().size());
    if (isBlank) return;
    if (atlas.numberOfLayers() == 3)
        fill<3>(finestOf(used, atlas));
    else
        fill<4>(finestOf(used, atlas));
}

} // namespace ZMT::CORE
