#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <nbx/math/color.h>
#include <zmt/core/vector/vectorstylesheet.h>

#include "areafill.h"
#include "linestroke.h"
#include "planwindow.h"

namespace ZMT::CORE {

/// What features look like from above in the box of one texture: vertices in groups of one look, which lie
/// one over the other in their order.
class FeatureShapes {
public:
    struct View {
        PlanPoint center; ///< in geo coordinates; vertices count from there
        double halfX, halfZ;
        double metresPerPixel;
        unsigned size;      ///< pixels along each side
        double scale = 1.0; ///< pixels in one of those that styles are in
    };
    struct Group {
        NBX::Color color;
        double lineWidth = 0.0;      ///< of segments, in pixels; 0 for triangles
        std::vector<float> vertices; ///< three numbers each, x, 0 and z
    };

    /// `sheet` outlives this. `opacity` multiplies that of all colours.
    FeatureShapes(const VectorStyleSheet & sheet, double opacity, const View & view);

    /// `feature` has the values of the fields of the sheet.
    void add(const RASTER::VectorFeature & feature);

    /// The lowest one first; none without vertices.
    std::vector<const Group *> groups() const;
    std::uint64_t features() const { return features_; }

private:
    enum Layer { L_Fill, L_Line, L_Symbol };
    /// Rules above cover those below; what features bring along has an order, so that neighbouring textures
    /// agree.
    using Key = std::tuple<Layer, std::size_t, std::string>;
    /// Of one kind of geometry in one rule.
    struct Look {
        Group * fill = nullptr;
        std::unique_ptr<LineStroke> stroke;
        Group * symbol = nullptr;
        double symbolSize = 0.0; ///< in metres
        VectorStyle::Symbol::Form form{};
    };
    struct Looks {
        Look point, line, area;
    };

    Looks & looksOf(std::size_t rule, const std::string & own);
    Look newLook(std::size_t rule, VectorStyleSheet::Kind kind, const std::string & own);
    void setStroke(Look & look, const VectorStyle::Stroke & stroke, const Key & key);
    Group & group(const Key & key, NBX::Color color, double share, double lineWidth);
    void toPlan(const RASTER::VectorFeature::Line & line, std::vector<PlanPoint> & points) const;
    void addArea(Look & look, const RASTER::VectorFeature::Area & area);
    void addSymbol(const Look & look, const PlanPoint & at);

    const VectorStyleSheet & sheet_;
    double opacity_;
    View view_;
    PlanWindow window_;
    AreaFill fill_;
    std::map<Key, Group> groups_;
    std::map<std::pair<std::size_t, std::string>, Looks> looks_;
    std::pair<const std::pair<std::size_t, std::string>, Looks> * lastLooks_ = nullptr;
    std::vector<PlanPoint> line_; ///< of a feature at hand
    std::uint64_t features_ = 0;
};

} // namespace ZMT::CORE
