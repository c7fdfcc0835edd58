// Separable filter with the weights of each axis computed beforehand: box for shrinking, tent for growing.

#include "imagescaling.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "boxfilter.h"
#include "pixelline.h"

namespace NBX {

namespace {

/// The source pixels that make up one target pixel: `count` of them from `first` on, with the weights from
/// `weights[offset]` on, which add up to 1.
struct Tap {
    int first, count;
    std::size_t offset;
};

struct Axis {
    std::vector<Tap> taps;
    std::vector<float> weights;
};

/// Target pixel i covers [i, i + 1) * from / to; all in units of 1 / to source pixels, hence exact.
void addBox(Axis & axis, std::int64_t i, std::int64_t from, std::int64_t to) {
    const std::int64_t low = i * from, high = low + from;
    const std::int64_t first = low / to, last = (high - 1) / to;
    axis.taps.push_back({static_cast<int>(first), static_cast<int>(last - first + 1), axis.weights.size()});
    for (std::int64_t k = first; k <= last; ++k) {
        const std::int64_t covered = std::min(high, (k + 1) * to) - std::max(low, k * to);
        axis.weights.push_back(static_cast<float>(static_cast<double>(covered) / static_cast<double>(from)));
    }
}

void addTent(Axis & axis, int i, int from, int to) {
    const double centre = std::clamp((i + 0.5) * from / to - 0.5, 0.0, from - 1.0);
    const int first = std::min(static_cast<int>(centre), std::max(from - 2, 0));
    const auto second = static_cast<float>(centre - first);
    axis.taps.push_back({first, second > 0.0F ? 2 : 1, axis.weights.size()});
    axis.weights.push_back(1.0F - second);
    if (second > 0.0F) axis.weights.push_back(second);
}

Axis makeAxis(int from, int to) {
    Axis axis;
    axis.taps.reserve(to);
    for (int i = 0; i < to; ++i) {
        if (to <= from)
            addBox(axis, i, from, to);
        else
            addTent(axis, i, from, to);
    }
    return axis;
}

template <int N> void filterLine(const float * from, const Axis & axis, float * to) {
    for (const Tap & tap : axis.taps) {
        std::array<float, N> sum{};
        const float * pixel = from + static_cast<std::size_t>(tap.first) * N;
        for (int k = 0; k < tap.count; ++k, pixel += N)
            for (int c = 0; c < N; ++c)
                sum[c] += axis.weights[tap.offset + k] * pixel[c];
        for (int c = 0; c < N; ++c)
            *to++ = sum[c];
    }
}

void filterLine(const float * from, const Axis & axis, int layers, float * to) {
    switch (layers) {
    case 1:
        filterLine<1>(from, axis, to);
        break;
    case 2:
        filterLine<2>(from, axis, to);
        break;
    case 3:
        filterLine<3>(from, axis, to);
        break;
    default:
        filterLine<4>(from, axis, to);
        break;
    }
}

/// Lines of the source in the layers of the target, filtered along x. The last two are kept: neighbouring
/// target lines share no more.
class FilteredLines {
public:
    FilteredLines(const Image & source, const Image & target)
        : source_(source), sequence_(target.layerSequence()), axis_(makeAxis(source.width(), target.width())),
          line_(static_cast<std::size_t>(source.width()) * target.numberOfLayers()) {
        for (std::vector<float> & kept : kept_)
            kept.resize(static_cast<std::size_t>(target.width()) * target.numberOfLayers());
    }

    const std::vector<float> & line(int y) {
        std::vector<float> & kept = kept_[y & 1];
        if (keptY_[y & 1] == y) return kept;
        PixelLine::convertToFloat(source_.lineComponents(y), source_.layerSequence(), source_.dataType(),
                                  sequence_, source_.width(), line_.data());
        filterLine(line_.data(), axis_, Image::numberOfLayers(sequence_), kept.data());
        keptY_[y & 1] = y;
        return kept;
    }

private:
    const Image & source_;
    LayerSequence sequence_;
    Axis axis_;
    std::vector<float> line_;
    std::array<std::vector<float>, 2> kept_;
    std::array<int, 2> keptY_{-1, -1};
};

bool canHalve(const Image & source, const Image & target) {
    const auto halves = [](int from, int to) { return from == 2 * to || (from == 1 && to == 1); };
    return source.layerSequence() == target.layerSequence() && source.dataType() == Image::UInt8 &&
           target.dataType() == Image::UInt8 && halves(source.width(), target.width()) &&
           halves(source.height(), target.height());
}

void halve(const Image & source, Image & target) {
    const int layers = source.numberOfLayers();
    const std::size_t right = source.width() == 1 ? 0 : layers;
    for (int y = 0; y < target.height(); ++y) {
        const auto * lower = static_cast<const std::uint8_t *>(source.lineComponents(2 * y));
        const auto * upper = source.height() == 1
                                 ? lower
                                 : static_cast<const std::uint8_t *>(source.lineComponents(2 * y + 1));
        auto * to = static_cast<std::uint8_t *>(target.lineComponents(y));
        halveLine(layers, lower, upper, right, to, target.width());
    }
}

} // namespace

void scaleImage(const Image & source, Image & target) {
    if (canHalve(source, target)) {
        halve(source, target);
        return;
    }
    const Axis axis = makeAxis(source.height(), target.height());
    FilteredLines lines(source, target);
    std::vector<float> sum(static_cast<std::size_t>(target.width()) * target.numberOfLayers());
    for (int y = 0; y < target.height(); ++y) {
        const Tap & tap = axis.taps[y];
        std::fill(sum.begin(), sum.end(), 0.0F);
        for (int k = 0; k < tap.count; ++k) {
            const float weight = axis.weights[tap.offset + k];
            const std::vector<float> & line = lines.line(tap.first + k);
            for (std::size_t i = 0; i < sum.size(); ++i)
                sum[i] += weight * line[i];
        }
        PixelLine::fromFloat(sum.data(), sum.size(), target.dataType(), target.lineComponents(y));
    }
}

} // namespace NBX
