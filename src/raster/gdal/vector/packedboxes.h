#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include <zmt/raster/geoextent.h>

namespace ZMT::RASTER {

/// Finds the boxes that touch a given one, among many that do not change. It takes 26 bytes for each of them,
/// and 8 more while it is built.
class PackedBoxes {
public:
    struct Entry {
        float minX, minY, maxX, maxY; ///< rounded outwards
        std::uint64_t value;          ///< the caller's
    };

    static Entry entry(const GeoExtent & box, std::uint64_t value);

    PackedBoxes() = default;
    explicit PackedBoxes(std::vector<Entry> entries);

    std::size_t size() const { return entries_.size(); }
    std::size_t bytes() const;
    /// Calls `work` with each entry that touches `box`, in no order that means anything.
    void find(const GeoExtent & box, const std::function<void(const Entry &)> & work) const;

private:
    struct Box {
        float minX, minY, maxX, maxY;
    };

    std::vector<Entry> entries_;           ///< neighbours side by side
    std::vector<std::vector<Box>> levels_; ///< each around so many of the one before, the entries first
};

} // namespace ZMT::RASTER
