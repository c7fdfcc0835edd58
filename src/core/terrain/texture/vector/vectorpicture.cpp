// Colours that are multiplied by their alpha can be averaged (T. Porter, T. Duff, "Compositing Digital
// Images", 1984), those of a texture that covers what lies below by its alpha are not multiplied. So the
// levels are averaged first and divided then, each by itself. A filter gives the colour of a transparent
// texel a share where its neighbour is not transparent: it is taken from the next coarser levels, whose
// texels cover these.

#include "vectorpicture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace ZMT::CORE {

namespace {

using Texel = std::array<float, 4>;

/// How many coarser levels are asked for the colour of a transparent texel. What two neighbouring levels
/// mix is found in two; the third covers what rounding takes away.
constexpr std::size_t s_coarser = 3;
/// Of 16 bits for each one of 8.
constexpr int s_step = 257;

/// The levels have 16 bits, since little is left of a thin line in the coarser ones.
NBX::SO<NBX::MemoryImage> newLevel(int width, int height) {
    return new NBX::MemoryImage(width, height, NBX::LS_RGBA, NBX::Image::UInt16);
}

const std::uint16_t * texelOf(const NBX::MemoryImage & image, int x, int y) {
    const void * line = image.lineComponents(std::clamp(y, 0, image.height() - 1));
    return static_cast<const std::uint16_t *>(line) +
           4 * static_cast<std::ptrdiff_t>(std::clamp(x, 0, image.width() - 1));
}

std::uint16_t * writableLine(NBX::MemoryImage & image, int y) {
    return static_cast<std::uint16_t *>(static_cast<NBX::Image &>(image).lineComponents(y));
}

NBX::SO<NBX::MemoryImage> firstLevel(const NBX::MemoryImage & drawn) {
    NBX::SO<NBX::MemoryImage> level = newLevel(drawn.width(), drawn.height());
    for (int y = 0; y < drawn.height(); ++y) {
        const unsigned char * from = drawn.lineComponentsU8(y);
        std::uint16_t * to = writableLine(*level, y);
        for (int i = 0; i < 4 * drawn.width(); ++i)
            to[i] = static_cast<std::uint16_t>(from[i] * s_step);
    }
    return level;
}

NBX::SO<NBX::MemoryImage> halved(const NBX::MemoryImage & image) {
    NBX::SO<NBX::MemoryImage> half =
        newLevel(std::max(image.width() / 2, 1), std::max(image.height() / 2, 1));
    for (int y = 0; y < half->height(); ++y) {
        std::uint16_t * target = writableLine(*half, y);
        for (int x = 0; x < half->width(); ++x)
            for (int i = 0; i < 4; ++i)
                *target++ = static_cast<std::uint16_t>(
                    (texelOf(image, 2 * x, 2 * y)[i] + texelOf(image, 2 * x + 1, 2 * y)[i] +
                     texelOf(image, 2 * x, 2 * y + 1)[i] + texelOf(image, 2 * x + 1, 2 * y + 1)[i] + 2) /
                    4);
    }
    return half;
}

/// Between the texels; `u` and `v` run from 0 to 1 over the image.
Texel interpolated(const NBX::MemoryImage & image, float u, float v) {
    const float x = u * static_cast<float>(image.width()) - 0.5F;
    const float y = v * static_cast<float>(image.height()) - 0.5F;
    const float left = std::floor(x), bottom = std::floor(y);
    Texel sum{};
    for (int corner = 0; corner < 4; ++corner) {
        const int dx = corner & 1, dy = corner >> 1;
        const float weight = (dx ? x - left : 1.0F - x + left) * (dy ? y - bottom : 1.0F - y + bottom);
        const std::uint16_t * texel =
            texelOf(image, static_cast<int>(left) + dx, static_cast<int>(bottom) + dy);
        for (unsigned i = 0; i < 4; ++i)
            sum[i] += weight * static_cast<float>(texel[i]);
    }
    return sum;
}

void divide(const Texel & color, unsigned char * target) {
    for (unsigned i = 0; i < 3; ++i)
        target[i] = static_cast<unsigned char>(std::lround(std::min(255.0F * color[i] / color[3], 255.0F)));
}

/// The colour of what lies about a transparent texel: that of the finest level that has one. Where a coarser
/// one has none, finer ones, which see less far, have none either, so that empty texels take one look.
void fill(const VectorPicture::Levels & drawn, std::size_t level, float u, float v, unsigned char * target) {
    std::fill(target, target + 3, static_cast<unsigned char>(255));
    for (std::size_t i = std::min(level + s_coarser, drawn.size() - 1); i > level; --i) {
        const Texel color = interpolated(*drawn[i], u, v);
        if (!(color[3] > 0.0F)) return;
        divide(color, target);
    }
}

NBX::SO<NBX::MemoryImage> divided(const VectorPicture::Levels & drawn, std::size_t level) {
    const NBX::MemoryImage & source = *drawn[level];
    NBX::SO<NBX::MemoryImage> result(new NBX::MemoryImage(source.width(), source.height(), NBX::LS_RGBA));
    for (int y = 0; y < source.height(); ++y) {
        const std::uint16_t * from = texelOf(source, 0, y);
        unsigned char * to = result->lineComponentsU8(y);
        for (int x = 0; x < source.width(); ++x, from += 4, to += 4) {
            to[3] = static_cast<unsigned char>((from[3] + s_step / 2) / s_step);
            if (from[3] > 0)
                divide({float(from[0]), float(from[1]), float(from[2]), float(from[3])}, to);
            else
                fill(drawn, level, (float(x) + 0.5F) / float(source.width()),
                     (float(y) + 0.5F) / float(source.height()), to);
        }
    }
    return result;
}

} // namespace

VectorPicture::Levels VectorPicture::levels(const NBX::MemoryImage & drawn) {
    Levels multiplied{firstLevel(drawn)};
    while (multiplied.back()->width() > 1 || multiplied.back()->height() > 1)
        multiplied.push_back(halved(*multiplied.back()));
    Levels result;
    result.reserve(multiplied.size());
    for (std::size_t i = 0; i < multiplied.size(); ++i)
        result.push_back(divided(multiplied, i));
    return result;
}

} // namespace ZMT::CORE
