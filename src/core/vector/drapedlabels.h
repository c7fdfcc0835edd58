#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <nbx/text/textshape.h>
#include <zmt/core/vector/vectorstylesheet.h>
#include <zmt/raster/geoextent.h>

namespace ZMT::CORE {

/// The labels of one source that lie on the ground, one at most for each feature, no two of which overlap.
/// All of them are found before the first is drawn: the texture next to that of a feature shows the rest of
/// its label, and must know where the whole feature lies.
class DrapedLabels {
public:
    struct Label {
        double x, z;      ///< in geo coordinates: of a point the middle of the lower edge, else the middle
        bool standsAbove; ///< it is that of a point
        std::wstring text;
        VectorStyle::Label style;
        double extent = 0.0;     ///< how large the feature is
        RASTER::GeoExtent box{}; ///< that it takes, with its halo
    };
    /// More are not looked at.
    static constexpr std::size_t mostLabels = 50000;
    /// Longer texts are cut.
    static constexpr std::size_t mostCharacters = 200;

    /// Enters the label of a whole feature, if it has one. False once no more can be kept.
    bool add(const VectorStyleSheet & sheet, const RASTER::VectorFeature & feature);
    /// To be called behind the last one: leaves out those that have no glyphs, and of those that overlap the
    /// ones that show at fewer scales, and those of smaller features.
    void settle();

    std::size_t size() const { return labels_.size(); }
    /// Those that show in the box where pixels are of this size. Ends when `visit` answers false.
    void visit(const RASTER::GeoExtent & box, double metresPerPixel,
               const std::function<bool(const Label &)> & visit) const;

    /// The shape of a label whose place is `position`.
    static NBX::SO<NBX::TextShape> newText(const Label & label, const NBX::Vector3Base<double> & position,
                                           double opacity);

private:
    std::vector<Label> labels_;
};

} // namespace ZMT::CORE
