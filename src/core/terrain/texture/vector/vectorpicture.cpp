// Colours that are multiplied by their alpha can be averaged (T. Porter, T. Duff, "Compositing Digital
// Images", 1984), those of a texture that covers what lies below by its alpha are not multiplied. So the
// levels are averaged first and divided then, each by itself. A filter gives the colour of a transparent
// texel a share where its neighbour is not transparent: it is taken from the next coarser levels, whose
// texels cover these.

#include "vectorpicture.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

namespace ZMT::CORE {

namespace {

/// How many coarser levels are asked for the colour of a transparent texel. What two neighbouring levels
/// mix is found in two; the third covers what rounding takes away.
constexpr std::size_t s_coarser = 3;

/// Colours multiplied by their alpha. They have 16 bits, since little is left of a thin line in the coarser
/// ones.
struct Level {
    std::size_t width, height;
    std::vector<std::uint16_t> texels;

    Level(std::size_t width, std::size_t height) : width(width), height(height), texels(4 * width * height) {}
    const std::uint16_t * line(std::size_t y) const { return &texels[4 * width * y]; }
};

/// Of 16 bits for each one of a component.
template <class Component> constexpr unsigned s_step = sizeof(Component) == 1 ? 257 : 1;

/// `line` gives the components of a line of a picture of `width` by `height` texels.
template <class Line> Level halved(std::size_t width, std::size_t height, const Line & line) {
    using Component = std::remove_cvref_t<decltype(*line(0))>;
    Level half(std::max<std::size_t>(width / 2, 1), std::max<std::size_t>(height / 2, 1));
    const std::size_t right = width > 1 ? 4 : 0;
    std::uint16_t * target = half.texels.data();
    for (std::size_t y = 0; y < half.height; ++y) {
        const Component * low = line(2 * y);
        const Component * high = line(std::min(2 * y + 1, height - 1));
        for (std::size_t x = 0; x < half.width; ++x, low += 8, high += 8)
            for (std::size_t i = 0; i < 4; ++i) {
                const unsigned sum = unsigned(low[i]) + low[i + right] + high[i] + high[i + right];
                *target++ = static_cast<std::uint16_t>((sum * s_step<Component> + 2) / 4);
            }
    }
    return half;
}

/// The levels above the picture.
std::vector<Level> halvings(const NBX::MemoryImage & drawn) {
    std::vector<Level> levels;
    std::size_t width = std::size_t(drawn.width()), height = std::size_t(drawn.height());
    if (width > 1 || height > 1)
        levels.push_back(halved(width, height,
                                [&](std::size_t y) { return drawn.lineComponentsU8(static_cast<int>(y)); }));
    while (!levels.empty() && (levels.back().width > 1 || levels.back().height > 1)) {
        const Level & finer = levels.back();
        levels.push_back(halved(finer.width, finer.height, [&](std::size_t y) { return finer.line(y); }));
    }
    return levels;
}

/// Where the texels of one axis of a level lie between those of a coarser one.
class Places {
public:
    Places(std::size_t count, std::size_t coarserCount) {
        places_.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            const float at = (float(i) + 0.5F) / float(count) * float(coarserCount) - 0.5F;
            const auto low = static_cast<std::ptrdiff_t>(std::floor(at));
            const auto last = static_cast<std::ptrdiff_t>(coarserCount) - 1;
            places_.push_back({std::size_t(std::clamp<std::ptrdiff_t>(low, 0, last)),
                               std::size_t(std::clamp<std::ptrdiff_t>(low + 1, 0, last)), at - float(low)});
        }
    }
    struct Place {
        std::size_t low, high;
        float share; ///< of the higher one
    };
    const Place & operator[](std::size_t i) const { return places_[i]; }

private:
    std::vector<Place> places_;
};

void divide(const float * color, float alpha, unsigned char * target) {
    const float scale = 255.0F / alpha;
    for (unsigned i = 0; i < 3; ++i)
        target[i] = static_cast<unsigned char>(std::min(scale * color[i], 255.0F) + 0.5F);
}

/// A coarser level, as the texels of a finer one see it.
class Surroundings {
public:
    Surroundings(const Level & level, std::size_t width, std::size_t height)
        : level_(level), columns_(width, level.width), lines_(height, level.height) {}

    /// Of the finer level; the ones below are of its texels.
    void setLine(std::size_t y) {
        low_ = level_.line(lines_[y].low);
        high_ = level_.line(lines_[y].high);
        share_ = lines_[y].share;
    }
    bool showsSomething(std::size_t x) const {
        const std::size_t left = 4 * columns_[x].low + 3, right = 4 * columns_[x].high + 3;
        return (low_[left] | low_[right] | high_[left] | high_[right]) != 0;
    }
    /// False where those that show something have no share in the texel.
    bool color(std::size_t x, unsigned char * target) const {
        const Places::Place & place = columns_[x];
        const std::uint16_t *a = low_ + 4 * place.low, *b = low_ + 4 * place.high;
        const std::uint16_t *c = high_ + 4 * place.low, *d = high_ + 4 * place.high;
        float sum[4];
        for (unsigned i = 0; i < 4; ++i) {
            const float below = float(a[i]) + (float(b[i]) - float(a[i])) * place.share;
            const float above = float(c[i]) + (float(d[i]) - float(c[i])) * place.share;
            sum[i] = below + (above - below) * share_;
        }
        if (sum[3] > 0.0F) divide(sum, sum[3], target);
        return sum[3] > 0.0F;
    }

private:
    const Level & level_;
    const Places columns_, lines_;
    const std::uint16_t *low_ = nullptr, *high_ = nullptr;
    float share_ = 0.0F;
};

/// Divides the colours of one level.
class Division {
public:
    Division(const std::vector<Level> & halvings, std::size_t level, std::size_t width, std::size_t height)
        : image_(new NBX::MemoryImage(int(width), int(height), NBX::LS_RGBA)) {
        for (std::size_t i = level; i < std::min(level + s_coarser, halvings.size()); ++i)
            coarser_.emplace_back(halvings[i], width, height);
    }

    /// `line` is as for `halved`.
    template <class Line> NBX::SO<NBX::MemoryImage> image(const Line & line) {
        for (std::size_t y = 0; y < std::size_t(image_->height()); ++y) {
            for (Surroundings & level : coarser_)
                level.setLine(y);
            divideLine(line(y), image_->lineComponentsU8(static_cast<int>(y)));
        }
        return image_;
    }

private:
    template <class Component> void divideLine(const Component * from, unsigned char * to) {
        constexpr unsigned opaque = 65535 / s_step<Component>, one = opaque / 255;
        for (std::size_t x = 0; x < std::size_t(image_->width()); ++x, from += 4, to += 4) {
            to[3] = static_cast<unsigned char>((from[3] + one / 2) / one);
            if (from[3] == 0) {
                fill(x, to);
            } else if (one == 1 && from[3] == opaque) {
                std::copy(from, from + 3, to);
            } else {
                const float color[3] = {float(from[0]), float(from[1]), float(from[2])};
                divide(color, float(from[3]), to);
            }
        }
    }

    /// The colour of what lies about a transparent texel: that of the finest level that has one. Where the
    /// coarsest one has none, finer ones, which see less far, have none either.
    void fill(std::size_t x, unsigned char * target) const {
        std::fill(target, target + 3, static_cast<unsigned char>(255));
        if (coarser_.empty() || !coarser_.back().showsSomething(x)) return;
        for (const Surroundings & level : coarser_)
            if (level.showsSomething(x) && level.color(x, target)) return;
    }

    const NBX::SO<NBX::MemoryImage> image_;
    std::vector<Surroundings> coarser_; ///< the finest one first
};

} // namespace

VectorPicture::Levels VectorPicture::levels(const NBX::MemoryImage & drawn) {
    const std::vector<Level> coarser = halvings(drawn);
    Levels result;
    result.reserve(coarser.size() + 1);
    result.push_back(Division(coarser, 0, std::size_t(drawn.width()), std::size_t(drawn.height()))
                         .image([&](std::size_t y) { return drawn.lineComponentsU8(static_cast<int>(y)); }));
    for (std::size_t i = 0; i < coarser.size(); ++i)
        result.push_back(
            Division(coarser, i + 1, coarser[i].width, coarser[i].height).image([&](std::size_t y) {
                return coarser[i].line(y);
            }));
    return result;
}

} // namespace ZMT::CORE
