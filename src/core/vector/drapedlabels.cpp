// Labels have sizes in metres, so that what overlaps does so at every scale, and is found once: the most
// important labels take their room first, in cells of about the size of a label.

#include "drapedlabels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <utility>

#include <nbx/object/stringutils.h>
#include <zmt/core/vector/labelanchor.h>

#include "coloropacity.h"

namespace ZMT::CORE {

namespace {

using Label = DrapedLabels::Label;
using RASTER::GeoExtent;

/// Of a pixel, by which scales are told.
constexpr double s_pixelMetres = 0.00028;

VectorStyleSheet::Kind kindOf(const RASTER::VectorFeature & feature) {
    if (!feature.areas.empty()) return VectorStyleSheet::Kind::Area;
    return feature.lines.empty() ? VectorStyleSheet::Kind::Point : VectorStyleSheet::Kind::Line;
}

bool overlap(const GeoExtent & a, const GeoExtent & b) {
    return a.minX < b.maxX && b.minX < a.maxX && a.minY < b.maxY && b.minY < a.maxY;
}

/// False for a text without glyphs.
bool findBox(Label & label) {
    const NBX::Bounds box =
        DrapedLabels::newText(label, NBX::Vector3Base<double>(label.x, 0.0, label.z), 1.0)->boundingBox();
    if (!box.isDefined()) return false;
    label.box = {box.getLLF().x, box.getLLF().z, box.getURB().x, box.getURB().z};
    return true;
}

/// A label gives way to those that show wherever it does.
bool comesBefore(const Label & a, const Label & b) {
    const auto scale = [](const Label & label) {
        return label.style.smallestScale > 0.0 ? label.style.smallestScale
                                               : std::numeric_limits<double>::infinity();
    };
    return scale(a) != scale(b) ? scale(a) > scale(b) : a.extent > b.extent;
}

/// Boxes by the places that they take.
class TakenRoom {
public:
    explicit TakenRoom(double cell) : cell_(cell) {}

    /// Takes the room of a box; false where some of it is taken.
    bool take(const GeoExtent & box) {
        std::vector<std::vector<GeoExtent> *> cells;
        for (auto x = number(box.minX); x <= number(box.maxX); ++x)
            for (auto z = number(box.minY); z <= number(box.maxY); ++z)
                cells.push_back(&boxes_[{x, z}]);
        for (const auto * cell : cells)
            for (const GeoExtent & other : *cell)
                if (overlap(box, other)) return false;
        for (auto * cell : cells)
            cell->push_back(box);
        return true;
    }

private:
    std::int64_t number(double place) const { return static_cast<std::int64_t>(std::floor(place / cell_)); }

    double cell_;
    std::map<std::pair<std::int64_t, std::int64_t>, std::vector<GeoExtent>> boxes_;
};

} // namespace

bool DrapedLabels::add(const VectorStyleSheet & sheet, const RASTER::VectorFeature & feature) {
    const auto kind = kindOf(feature);
    const VectorStyle style = sheet.styleOf(sheet.ruleOf(feature.values), kind, feature.style);
    if (!style.label || !style.label->isDraped()) return true;
    std::wstring text = NBX::StringUtils::Utf8String2WString(sheet.labelOf(style, feature.values));
    const auto anchor = LabelAnchor::of(feature);
    if (text.empty() || !anchor) return true;
    if (labels_.size() == mostLabels) return false;
    if (text.size() > mostCharacters) text.resize(mostCharacters);
    const bool isPoint = kind == VectorStyleSheet::Kind::Point;
    double above = 0.0;
    if (isPoint && style.symbol && style.symbol->size.unit == VectorSize::Unit::Metres)
        above = style.symbol->size.value / 2.0;
    labels_.push_back({anchor->position.x, anchor->position.z + above, isPoint, std::move(text), *style.label,
                       anchor->extent});
    return true;
}

void DrapedLabels::settle() {
    std::vector<Label> labels = std::exchange(labels_, {});
    std::stable_sort(labels.begin(), labels.end(), comesBefore);
    double sum = 0.0, widest = 0.0;
    for (Label & label : labels) {
        if (!findBox(label)) continue;
        const double width = label.box.maxX - label.box.minX;
        sum += width;
        widest = std::max(widest, width);
    }
    // A label takes a bounded number of cells, however much larger than the others it is.
    TakenRoom room(std::max({sum / static_cast<double>(labels.size() + 1), widest / 64.0, 1e-6}));
    labels_.reserve(labels.size());
    for (Label & label : labels)
        if (label.box.maxX > label.box.minX && room.take(label.box)) labels_.push_back(std::move(label));
}

void DrapedLabels::visit(const GeoExtent & box, double metresPerPixel,
                         const std::function<bool(const Label &)> & visit) const {
    const double scale = metresPerPixel / s_pixelMetres;
    for (const Label & label : labels_) {
        const bool isShown = label.style.smallestScale <= 0.0 || scale <= label.style.smallestScale;
        if (isShown && overlap(label.box, box) && !visit(label)) return;
    }
}

NBX::SO<NBX::TextShape> DrapedLabels::newText(const Label & label, const NBX::Vector3Base<double> & position,
                                              double opacity) {
    NBX::SO<NBX::TextShape> text(
        new NBX::TextShape(label.text, position, label.style.size.value, NBX::TextShape::SU_Metres));
    text->setAnchor(label.standsAbove ? NBX::TextLayout::A_Lower : NBX::TextLayout::A_Center);
    text->setColor(withOpacity(label.style.color, opacity));
    text->setHalo(label.style.haloWidth, withOpacity(label.style.haloColor, opacity));
    return text;
}

} // namespace ZMT::CORE
