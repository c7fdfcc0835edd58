// An R-tree without pointers: boxes are sorted by the place of their middle on a Hilbert curve, and so many
// neighbours make a node (I. Kamel and C. Faloutsos, On Packing R-trees, CIKM 1993).

#include "packedboxes.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace ZMT::RASTER {

namespace {

constexpr std::size_t s_nodeSize = 16;
constexpr unsigned s_curveBits = 16; ///< an axis

constexpr float s_floatInfinity = std::numeric_limits<float>::infinity();
constexpr float s_largest = std::numeric_limits<float>::max();

float below(double value) {
    if (value < -s_largest) return -s_floatInfinity;
    const auto rounded = static_cast<float>(std::min<double>(value, s_largest));
    return rounded > value ? std::nextafter(rounded, -s_floatInfinity) : rounded;
}

float above(double value) {
    return -below(-value);
}

/// The place of a cell on the curve.
std::uint32_t curvePlace(std::uint32_t x, std::uint32_t y) {
    std::uint32_t place = 0;
    for (std::uint32_t half = 1U << (s_curveBits - 1); half > 0; half /= 2) {
        const bool east = x & half, north = y & half;
        place = place * 4 + (east ? (north ? 2 : 3) : (north ? 1 : 0));
        if (!north) {
            if (east) {
                x = ~x;
                y = ~y;
            }
            std::swap(x, y);
        }
    }
    return place;
}

template <class Box> bool touch(const Box & a, const PackedBoxes::Entry & b) {
    return a.minX <= b.maxX && b.minX <= a.maxX && a.minY <= b.maxY && b.minY <= a.maxY;
}

template <class Box, class Other> void widen(Box & box, const Other & other) {
    box.minX = std::min(box.minX, other.minX);
    box.minY = std::min(box.minY, other.minY);
    box.maxX = std::max(box.maxX, other.maxX);
    box.maxY = std::max(box.maxY, other.maxY);
}

/// Boxes around `s_nodeSize` neighbours each.
template <class Box, class Other> std::vector<Box> around(const std::vector<Other> & boxes) {
    std::vector<Box> result;
    result.reserve(boxes.size() / s_nodeSize + 1);
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        if (i % s_nodeSize == 0)
            result.push_back({boxes[i].minX, boxes[i].minY, boxes[i].maxX, boxes[i].maxY});
        widen(result.back(), boxes[i]);
    }
    return result;
}

struct Place {
    std::uint32_t onCurve, entry;
};

std::vector<Place> sortedPlaces(const std::vector<PackedBoxes::Entry> & entries) {
    PackedBoxes::Entry all = entries.front();
    for (const PackedBoxes::Entry & entry : entries)
        widen(all, entry);
    const auto cell = [](double low, double high, double from, double to) {
        constexpr double cells = (1U << s_curveBits) - 1;
        const double share = ((low - from) + (high - from)) / 2.0 / (to - from);
        return share > 0.0 ? static_cast<std::uint32_t>(std::min(share, 1.0) * cells) : 0U;
    };
    std::vector<Place> places;
    places.reserve(entries.size());
    for (const PackedBoxes::Entry & e : entries)
        places.push_back(
            {curvePlace(cell(e.minX, e.maxX, all.minX, all.maxX), cell(e.minY, e.maxY, all.minY, all.maxY)),
             static_cast<std::uint32_t>(places.size())});
    std::sort(places.begin(), places.end(), [](const Place & a, const Place & b) {
        return a.onCurve != b.onCurve ? a.onCurve < b.onCurve : a.entry < b.entry;
    });
    return places;
}

/// Brings the entries into the order of `places`, whose numbers are used up.
void reorder(std::vector<PackedBoxes::Entry> & entries, std::vector<Place> & places) {
    for (std::uint32_t start = 0; start < places.size(); ++start) {
        if (places[start].entry == start) continue;
        const PackedBoxes::Entry first = entries[start];
        std::uint32_t hole = start;
        for (std::uint32_t next = places[hole].entry; next != start; next = places[hole].entry) {
            entries[hole] = entries[next];
            places[hole].entry = hole;
            hole = next;
        }
        entries[hole] = first;
        places[hole].entry = hole;
    }
}

} // namespace

PackedBoxes::Entry PackedBoxes::entry(const GeoExtent & box, std::uint64_t value) {
    return {below(box.minX), below(box.minY), above(box.maxX), above(box.maxY), value};
}

PackedBoxes::PackedBoxes(std::vector<Entry> entries) : entries_(std::move(entries)) {
    if (entries_.empty()) return;
    entries_.shrink_to_fit();
    std::vector<Place> places = sortedPlaces(entries_);
    reorder(entries_, places);
    levels_.push_back(around<Box>(entries_));
    while (levels_.back().size() > 1)
        levels_.push_back(around<Box>(levels_.back()));
}

std::size_t PackedBoxes::bytes() const {
    std::size_t bytes = entries_.capacity() * sizeof(Entry);
    for (const auto & level : levels_)
        bytes += level.capacity() * sizeof(Box);
    return bytes;
}

void PackedBoxes::find(const GeoExtent & box, const std::function<void(const Entry &)> & work) const {
    if (entries_.empty()) return;
    const Entry wanted = entry(box, 0);
    std::vector<std::pair<std::size_t, std::size_t>> open{
        {levels_.size(), 0}}; // levels, 0 for entries; numbers
    while (!open.empty()) {
        const auto [level, number] = open.back();
        open.pop_back();
        if (level == 0) {
            if (touch(entries_[number], wanted)) work(entries_[number]);
            continue;
        }
        if (!touch(levels_[level - 1][number], wanted)) continue;
        const std::size_t below = level == 1 ? entries_.size() : levels_[level - 2].size();
        for (std::size_t i = number * s_nodeSize; i < std::min((number + 1) * s_nodeSize, below); ++i)
            open.emplace_back(level - 1, i);
    }
}

} // namespace ZMT::RASTER
