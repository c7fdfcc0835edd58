#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <nbx/math/vector3base.h>
#include <zmt/raster/geoextent.h>

namespace ZMT::RASTER {

/// What a feature has in a field: nothing, a number or a text. Dates and times are texts, as ISO 8601 writes
/// them; lists are texts.
using FieldValue = std::variant<std::monostate, std::int64_t, double, std::string>;

struct VectorField {
    enum class Type { Integer, Real, Text };
    std::string name;
    Type type;
};

/// A thing of a map, in the coordinates asked for: x to the east, z to the north, y the height, 0 where the
/// source has none. All numbers are finite.
struct VectorFeature {
    using Position = NBX::Vector3Base<double>;
    using Line = std::vector<Position>; ///< at least two positions
    /// The outline, then holes; each with at least three positions, the first not repeated at the end.
    using Area = std::vector<Line>;

    std::int64_t id = 0; ///< the same whenever the feature is read
    std::vector<Position> points;
    std::vector<Line> lines;
    std::vector<Area> areas;
    std::vector<FieldValue> values; ///< of the fields asked for, in their order
    /// How the source wants it to be drawn, in the words of a style specification
    /// ("color=#ff0000, width=2"); empty where it does not say.
    std::string style;

    bool hasGeometry() const { return !points.empty() || !lines.empty() || !areas.empty(); }
};

/// Features that can be read by the place where they lie.
class FeatureSource {
public:
    virtual ~FeatureSource() = default;

    /// For people, and for messages.
    virtual const std::string & name() const = 0;
    virtual const std::vector<VectorField> & fields() const = 0;
    /// Number of features, those without geometry included.
    virtual std::uint64_t size() const = 0;
    /// Where they lie in the coordinates that features have; none where nothing lies.
    virtual std::optional<GeoExtent> extent() const = 0;

    struct Kinds {
        bool points = false, lines = false, areas = false;
    };
    /// What of these may occur.
    virtual Kinds kinds() const = 0;

    struct Query {
        GeoExtent box;
        /// How far the shapes may lie from the true ones; 0 for the true ones.
        double tolerance = 0.0;
        /// Numbers in `fields()` of the values that are wanted.
        std::vector<unsigned> fields = {};
    };
    /// Hands over, in the order of the source, what may be seen in the box: whole in the box, but cut off
    /// beyond it where that saves much. Ends when `visit` answers false. Throws `NBX::InputException` for
    /// data that cannot be read any more. One thread at a time.
    virtual void read(const Query & query,
                      const std::function<bool(const VectorFeature &)> & visit) const = 0;
};

} // namespace ZMT::RASTER
