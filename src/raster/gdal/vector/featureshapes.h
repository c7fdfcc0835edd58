#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include <zmt/raster/featuresource.h>
#include <zmt/raster/geoextent.h>

namespace ZMT::RASTER {

/// The shapes of one feature, in two lists that keep their memory from feature to feature.
struct FeatureShapes {
    using Position = VectorFeature::Position;

    /// Holes follow the outline that they lie in. Rings do not repeat their first position.
    enum class Kind : std::uint32_t { Points, Line, Outline, Hole };
    struct Path {
        std::uint32_t end; ///< in `positions`, where the next path begins
        Kind kind;
    };

    std::vector<Position> positions;
    std::vector<Path> paths;

    bool isEmpty() const { return paths.empty(); }
    void clear();
    std::size_t begin(std::size_t path) const { return path == 0 ? 0 : paths[path - 1].end; }
    /// Makes what was appended to `positions` behind the last path the next one. It is left out, and so is a
    /// hole without an outline, where it has too few positions for its kind; then the answer is false.
    bool close(Kind kind);
    /// Around all positions; none where there is none.
    std::optional<GeoExtent> box() const;

    /// Replaces what `feature` has of shapes.
    void copyTo(VectorFeature & feature) const;

private:
    std::size_t closed() const { return paths.empty() ? 0 : paths.back().end; }
    bool hasOutline_ = false; ///< the last one was long enough
};

/// What lies in `extent`: lines in parts, and rings closed along its border, where they run outside.
void cutShapes(const FeatureShapes & shapes, const GeoExtent & extent, FeatureShapes & result);

/// With fewer positions, no point of the lines farther than `tolerance` from what was there, nor the other
/// way round. Areas keep at least a triangle, or vanish where they are smaller than `tolerance` in x and in
/// y. Heights count for nothing.
void simplifyShapes(const FeatureShapes & shapes, double tolerance, FeatureShapes & result);

/// Of two that do not touch it is empty.
inline GeoExtent common(const GeoExtent & a, const GeoExtent & b) {
    return {std::max(a.minX, b.minX), std::max(a.minY, b.minY), std::min(a.maxX, b.maxX),
            std::min(a.maxY, b.maxY)};
}

inline bool isEmpty(const GeoExtent & extent) {
    return !(extent.minX <= extent.maxX && extent.minY <= extent.maxY);
}

inline bool touches(const GeoExtent & a, const GeoExtent & b) {
    return a.minX <= b.maxX && b.minX <= a.maxX && a.minY <= b.maxY && b.minY <= a.maxY;
}

inline bool contains(const GeoExtent & outer, const GeoExtent & inner) {
    return outer.minX <= inner.minX && inner.maxX <= outer.maxX && outer.minY <= inner.minY &&
           inner.maxY <= outer.maxY;
}

/// The box around the positions from `first` to before `last`.
GeoExtent boxAround(const VectorFeature::Position * first, const VectorFeature::Position * last);

} // namespace ZMT::RASTER
