// A box filter of any width by summed texels, after Crow, Summed-Area Tables for Texture Mapping, 1984, in
// each axis by itself: the sum of a column up to a place between texels, continued beyond its ends as the
// wrap mode says, gives the mean between two places by one difference. So a hundred repetitions under one
// pixel cost no more than one. A pixel that is smaller than a texel takes a box as wide as one texel round
// its middle, which is linear interpolation. Sums of bytes are whole numbers, so that the result does not
// depend on the machine.
//
// Down the columns first: the sums of all columns at once are rows that grow texel by texel, each is added to
// the pixels whose boxes begin or end there, and none is kept. What is left are as many rows as there are
// pixels upwards, far fewer than texels as a rule. Lines that are no bytes of RGB or RGBA become such one by
// one: a whole copy of a large image would take far more memory than the image.

#include "texturepart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include <nbx/image/image.h>

#include "nbx/image/pixelline.h"

namespace ZMT::CORE {

namespace {

constexpr unsigned s_layers = 4;
/// Numbers between the passes at once, 64 MiB.
constexpr std::size_t s_mostNumbers = std::size_t(1) << 24;

/// The pixels of one axis on the texels of one.
class Boxes {
public:
    /// Whole periods, then whole texels of one, then a part of that texel; beyond the edge the part is less
    /// than 0 or more than 1.
    struct Place {
        double periods;
        unsigned texel;
        double part;
    };
    struct Box {
        Place begin, end;
        double density; ///< 1 over the length in texels
    };

    Boxes(const TextureStretch & stretch, unsigned texels)
        : texels_(texels), isMirrored_(stretch.wrap == NBX::TextureGL::WM_MirroredRepeat),
          isRepeated_(isMirrored_ || stretch.wrap == NBX::TextureGL::WM_Repeat) {
        const double step = stretch.step * texels;
        boxes_.reserve(stretch.pixels);
        for (unsigned i = 0; i < stretch.pixels; ++i) {
            const double middle = stretch.begin * texels + (i + 0.5) * step;
            const double half = std::max(step, 1.0) * 0.5;
            boxes_.push_back({placeAt(middle - half), placeAt(middle + half), 0.5 / half});
        }
    }

    unsigned texels() const { return texels_; }
    const std::vector<Box> & boxes() const { return boxes_; }
    /// That `place` lies in.
    unsigned texelOf(const Place & place) const {
        return place.texel < texels_ ? place.texel : 2 * texels_ - 1 - place.texel;
    }
    /// The sum up to a place without its part is `wholes` times that of all texels, and plus or minus that of
    /// the first `texels`.
    struct Sum {
        double wholes;
        bool isMinus;
        unsigned texels;
    };
    Sum sumOf(const Place & place) const {
        const double wholes = place.periods * (isMirrored_ ? 2.0 : 1.0);
        if (place.texel < texels_) return {wholes, false, place.texel};
        return {wholes + 2.0, true, 2 * texels_ - place.texel};
    }

private:
    Place placeAt(double x) const {
        const double length = isMirrored_ ? 2.0 * texels_ : texels_;
        const double periods = isRepeated_ ? std::floor(x / length) : 0.0;
        const double rest = x - periods * length;
        const double texel = std::clamp(std::floor(rest), 0.0, length - 1.0);
        return {periods, static_cast<unsigned>(texel), rest - texel};
    }

    const unsigned texels_;
    const bool isMirrored_, isRepeated_;
    std::vector<Box> boxes_;
};

bool isOfBytes(const NBX::Image & source) {
    const bool isColor = source.layerSequence() == NBX::LS_RGBA || source.layerSequence() == NBX::LS_RGB;
    return isColor && source.dataType() == NBX::Image::UInt8;
}

/// The lines of an image as bytes of RGB or RGBA, which are read as they are, or else of RGBA.
class ByteLines {
public:
    explicit ByteLines(const NBX::Image & source) : source_(source), isOfBytes_(isOfBytes(source)) {}

    /// Valid until the next call for another line with the same `place`, of which there are two.
    const unsigned char * line(unsigned y, unsigned place = 0) {
        const auto row = static_cast<int>(y);
        if (isOfBytes_) return source_.lineComponentsU8(row);
        Converted & converted = converted_[place];
        if (converted.y != row) {
            const int width = source_.width();
            converted.bytes.resize(std::size_t(width) * s_layers);
            NBX::PixelLine::convert(source_.lineComponents(row), source_.layerSequence(), source_.dataType(),
                                    converted.bytes.data(), NBX::LS_RGBA, NBX::Image::UInt8, width);
            converted.y = row;
        }
        return converted.bytes.data();
    }

private:
    struct Converted {
        int y = -1;
        std::vector<unsigned char> bytes;
    };

    const NBX::Image & source_;
    const bool isOfBytes_;
    std::array<Converted, 2> converted_;
};

#if defined(__GNUC__) && !defined(__clang__)
#define ZMT_VECTORIZED [[gnu::optimize("O3")]]
#else
#define ZMT_VECTORIZED
#endif

/// Adds bytes to as many sums. Most of the work, and in vectors a seventh of it.
ZMT_VECTORIZED void addBytes(const unsigned char * __restrict bytes, std::size_t count,
                             std::uint32_t * __restrict sums) {
    for (std::size_t i = 0; i < count; ++i)
        sums[i] += bytes[i];
}

/// Rows of pixels of texels: the means of boxes down the columns of an image, `numbers` a row.
class ColumnMeans {
public:
    ColumnMeans(ByteLines & source, std::size_t numbers, const Boxes & boxes, unsigned first, unsigned count)
        : source_(source), numbers_(numbers), boxes_(boxes), first_(first), whole_(count * numbers),
          total_(numbers) {
        std::vector<Event> events;
        bool needsTotal = false;
        for (unsigned i = 0; i < count; ++i) {
            const Boxes::Box & box = boxes.boxes()[first + i];
            const Boxes::Sum begin = boxes.sumOf(box.begin), end = boxes.sumOf(box.end);
            needsTotal = needsTotal || end.wholes != begin.wholes || begin.isMinus || end.isMinus;
            events.push_back({begin.texels, i, !begin.isMinus});
            events.push_back({end.texels, i, end.isMinus});
        }
        std::sort(events.begin(), events.end(),
                  [](const Event & a, const Event & b) { return a.texels < b.texels; });
        sweep(events, needsTotal);
    }

    /// Of the pixel `first + i`.
    void get(unsigned i, std::vector<float> & row) {
        const Boxes::Box & box = boxes_.boxes()[first_ + i];
        const double wholes = boxes_.sumOf(box.end).wholes - boxes_.sumOf(box.begin).wholes;
        const unsigned char * begin = source_.line(boxes_.texelOf(box.begin), 0);
        const unsigned char * end = source_.line(boxes_.texelOf(box.end), 1);
        const std::uint32_t * whole = &whole_[i * numbers_];
        for (std::size_t k = 0; k < numbers_; ++k) {
            const double sum = wholes * double(total_[k]) + double(static_cast<std::int32_t>(whole[k]));
            row[k] =
                static_cast<float>((sum + box.end.part * end[k] - box.begin.part * begin[k]) * box.density);
        }
    }

private:
    /// The sum of so many texels counts for a pixel.
    struct Event {
        unsigned texels, pixel;
        bool isMinus;
    };

    /// Differences alone begin where the first one does.
    void sweep(const std::vector<Event> & events, bool needsTotal) {
        std::vector<std::uint32_t> sums(numbers_);
        unsigned y = needsTotal ? 0 : events.front().texels;
        const auto goOnTo = [&](unsigned end) {
            for (; y < end; ++y)
                addBytes(source_.line(y), numbers_, sums.data());
        };
        for (const Event & event : events) {
            goOnTo(event.texels);
            std::uint32_t * whole = &whole_[event.pixel * numbers_];
            const std::uint32_t sign = event.isMinus ? ~std::uint32_t(0) : 1; // modulo 2^32
            for (std::size_t k = 0; k < numbers_; ++k)
                whole[k] += sign * sums[k];
        }
        if (!needsTotal) return;
        goOnTo(boxes_.texels());
        total_ = sums;
    }

    ByteLines & source_;
    const std::size_t numbers_;
    const Boxes & boxes_;
    const unsigned first_;
    std::vector<std::uint32_t> whole_; ///< of whole texels
    std::vector<std::uint32_t> total_; ///< of all of them; 0 where that makes no difference
};

/// One row of means on its way to pixels, of `Layers` values a texel.
template <unsigned Layers> class RowFilter {
public:
    explicit RowFilter(const Boxes & boxes)
        : boxes_(boxes), sums_((std::size_t(boxes.texels()) + 1) * Layers) {}

    /// `values` stay where they are until the next ones are loaded.
    void load(const float * values) {
        values_ = values;
        double * sum = sums_.data();
        for (unsigned i = 0; i < boxes_.texels(); ++i, sum += Layers)
            for (unsigned layer = 0; layer < Layers; ++layer)
                sum[Layers + layer] = sum[layer] + double(values[std::size_t(i) * Layers + layer]);
    }
    double pixel(unsigned i, unsigned layer) const {
        const Boxes::Box & box = boxes_.boxes()[i];
        const Boxes::Sum begin = boxes_.sumOf(box.begin), end = boxes_.sumOf(box.end);
        const double wholes = (end.wholes - begin.wholes) * sumOf(boxes_.texels(), layer);
        return (wholes + upTo(box.end, end, layer) - upTo(box.begin, begin, layer)) * box.density;
    }

private:
    double sumOf(unsigned texels, unsigned layer) const {
        return sums_[std::size_t(texels) * Layers + layer];
    }
    double upTo(const Boxes::Place & place, const Boxes::Sum & sum, unsigned layer) const {
        const double whole = sumOf(sum.texels, layer);
        return (sum.isMinus ? -whole : whole) +
               place.part * double(values_[std::size_t(boxes_.texelOf(place)) * Layers + layer]);
    }

    const Boxes & boxes_;
    const float * values_ = nullptr;
    std::vector<double> sums_;
};

bool isUsable(const TextureStretch & stretch) {
    return std::isfinite(stretch.begin) && std::isfinite(stretch.step) && stretch.step >= 0.0 &&
           stretch.pixels > 0;
}

/// A column of 2^23 texels would be too long for the sums.
template <unsigned Layers>
void drawPart(const NBX::Image & source, const TextureStretch & s, const TextureStretch & t,
              NBX::Image & target) {
    const auto width = static_cast<unsigned>(source.width());
    const Boxes across(s, width), up(t, static_cast<unsigned>(source.height()));
    const std::size_t numbers = std::size_t(width) * Layers;
    const auto most = static_cast<unsigned>(std::max<std::size_t>(1, s_mostNumbers / numbers));
    RowFilter<Layers> filter(across);
    ByteLines lines(source);
    std::vector<float> row(numbers);
    for (unsigned first = 0; first < t.pixels; first += most) {
        const unsigned count = std::min(most, t.pixels - first);
        ColumnMeans means(lines, numbers, up, first, count);
        for (unsigned i = 0; i < count; ++i) {
            means.get(i, row);
            filter.load(row.data());
            unsigned char * pixel = target.lineComponentsU8(static_cast<int>(first + i));
            for (unsigned x = 0; x < s.pixels; ++x, pixel += s_layers) {
                for (unsigned layer = 0; layer < Layers; ++layer)
                    pixel[layer] =
                        static_cast<unsigned char>(std::clamp(filter.pixel(x, layer), 0.0, 255.0) + 0.5);
                if (Layers < s_layers) pixel[s_layers - 1] = 255;
            }
        }
    }
}

} // namespace

void drawTexturePart(const NBX::Image & source, const TextureStretch & s, const TextureStretch & t,
                     NBX::Image & target) {
    if (source.width() < 1 || source.height() < 1 || !isUsable(s) || !isUsable(t)) return;
    if (isOfBytes(source) && source.layerSequence() == NBX::LS_RGB)
        drawPart<3>(source, s, t, target);
    else
        drawPart<s_layers>(source, s, t, target);
}

} // namespace ZMT::CORE
