// Each edge turns over one bit in each row of pixels whose middle it crosses, that of the first pixel to the
// right of it; a pixel is inside where the number of bits up to it is odd (B. D. Ackland, N. H. Weste, "The
// Edge Flag Algorithm", 1981). So rings may be as ragged as they like, cross themselves and each other, lie
// in any order, and reach beyond the picture. Triangulations take seconds for ragged areas, and need care
// where rings touch; the card would draw the same pixels.

#include "areafill.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <utility>

namespace ZMT::CORE {

namespace {

using Ring = AreaFill::Ring;
/// First and behind the last.
using Range = std::pair<unsigned, unsigned>;

constexpr unsigned s_wordBits = 64;

/// Of the pixels whose middles lie in [low, high), in units of pixels.
Range pixelsIn(double low, double high, unsigned size) {
    const auto first = [size](double place) {
        return static_cast<unsigned>(std::clamp(std::ceil(place - 0.5), 0.0, double(size)));
    };
    return {first(low), first(high)};
}

/// The bits of some rows.
class EdgeFlags {
public:
    EdgeFlags(const Range & rows, unsigned size)
        : firstRow_(rows.first), words_(size / s_wordBits + 1),
          bits_(std::size_t(words_) * (rows.second - rows.first)) {}

    void turnOver(unsigned row, unsigned column) {
        word(row)[column / s_wordBits] ^= std::uint64_t(1) << (column % s_wordBits);
    }
    /// The pixels inside, as ranges.
    void runs(unsigned row, unsigned size, std::vector<Range> & runs) {
        runs.clear();
        bool isInside = false;
        for (unsigned i = 0; i < words_; ++i)
            for (std::uint64_t bits = word(row)[i]; bits != 0; bits &= bits - 1) {
                const unsigned column = i * s_wordBits + unsigned(std::countr_zero(bits));
                if (isInside)
                    runs.back().second = column;
                else
                    runs.emplace_back(column, size);
                isInside = !isInside;
            }
        if (isInside && runs.back().first == size) runs.pop_back();
    }

private:
    std::uint64_t * word(unsigned row) { return &bits_[std::size_t(words_) * (row - firstRow_)]; }

    unsigned firstRow_, words_;
    std::vector<std::uint64_t> bits_;
};

/// In units of pixels, from the lower left corner.
struct Edge {
    double x, z, slope;
    Range rows;

    Edge(const PlanPoint & a, const PlanPoint & b, unsigned size)
        : x(a.x), z(a.z), slope((b.x - a.x) / (b.z - a.z)),
          rows(pixelsIn(std::min(a.z, b.z), std::max(a.z, b.z), size)) {}

    void turnOver(EdgeFlags & flags, unsigned size) const {
        for (unsigned row = rows.first; row < rows.second; ++row) {
            const double crossing = std::ceil(x + (row + 0.5 - z) * slope - 0.5);
            flags.turnOver(row, crossing > 0.0 ? unsigned(std::min(crossing, double(size))) : 0);
        }
    }
};

/// Pushes the rectangles of runs that several rows have in common.
class Rectangles {
public:
    Rectangles(double halfX, double halfZ, unsigned size, std::vector<float> & vertices)
        : halfX_(halfX), halfZ_(halfZ), size_(size), vertices_(vertices) {}

    void push(const std::vector<Range> & runs, const Range & rows) {
        for (const Range & run : runs) {
            const float west = place(run.first, halfX_), east = place(run.second, halfX_);
            const float south = place(rows.first, halfZ_), north = place(rows.second, halfZ_);
            vertices_.insert(vertices_.end(), {west, 0.0F, south, east, 0.0F, south, east, 0.0F, north, west,
                                               0.0F, south, east, 0.0F, north, west, 0.0F, north});
        }
    }

private:
    float place(unsigned border, double half) const {
        return static_cast<float>(half * (2.0 * border / size_ - 1.0));
    }

    double halfX_, halfZ_;
    unsigned size_;
    std::vector<float> & vertices_;
};

} // namespace

void AreaFill::fill(const std::vector<Ring> & rings, std::vector<float> & vertices) const {
    const auto inPixels = [this](const PlanPoint & p) {
        return PlanPoint{(p.x / halfX_ + 1.0) * 0.5 * size_, (p.z / halfZ_ + 1.0) * 0.5 * size_};
    };
    std::vector<Edge> edges;
    Range rows(size_, 0);
    for (const Ring & ring : rings)
        for (std::size_t i = 0; i < ring.size(); ++i) {
            const Edge edge(inPixels(ring[i]), inPixels(ring[i + 1 == ring.size() ? 0 : i + 1]), size_);
            if (edge.rows.first >= edge.rows.second) continue;
            rows = {std::min(rows.first, edge.rows.first), std::max(rows.second, edge.rows.second)};
            edges.push_back(edge);
        }
    if (edges.empty()) return;
    EdgeFlags flags(rows, size_);
    for (const Edge & edge : edges)
        edge.turnOver(flags, size_);

    Rectangles rectangles(halfX_, halfZ_, size_, vertices);
    std::vector<Range> open, runs;
    unsigned openedAt = rows.first;
    for (unsigned row = rows.first; row < rows.second; ++row) {
        flags.runs(row, size_, runs);
        if (runs == open) continue;
        rectangles.push(open, {openedAt, row});
        openedAt = row;
        std::swap(open, runs);
    }
    rectangles.push(open, {openedAt, rows.second});
}

} // namespace ZMT::CORE
