#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <zmt/core/vector/vectorstyle.h>
#include <zmt/raster/featuresource.h>

namespace ZMT::CORE {

/// Says how features are drawn, by what they have in their fields.
///
/// A specification is `key=value` pairs parted by commas, each key once at most:
///
///     color=#rrggbb, #rrggbbaa or a name   of lines, outlines and symbols
///     width=2 or width=8m                  pixels of the texture, or metres on the ground; 0 for no line
///     dash=4 2                             dashes and gaps in turn, in pixels
///     fill=#rrggbbaa                       of areas
///     opacity=0.5                          times that of color and fill
///     symbol=circle                        of points; also square, diamond, triangle, cross
///     size=6                               of the symbol; 0 for none
///     label=FIELD, label-size=12, label-color, halo=1.5, halo-color, label-from=1:50000
///
/// A style file has lines `FILTER: SPECIFICATION`, of which the first one that fits a feature holds for it;
/// FILTER is `default` or `FIELD OP VALUE` joined by `and`, with OP one of = != < <= > >=. Lines that begin
/// with `#` are comments. Fields and values with blanks or signs stand in double quotes. A value that is a
/// number is compared as a number, and fits only numbers but for !=; another one is compared as text. What a
/// feature lacks fits != alone.
///
/// What a rule leaves open comes from the style that the feature brings along, then from the defaults of the
/// kind of its geometry. A feature that no rule fits is not drawn, unless there are no rules.
class VectorStyleSheet {
public:
    enum class Kind { Point, Line, Area };
    using Values = std::vector<RASTER::FieldValue>;

    /// No rules: styles of the features, and defaults.
    VectorStyleSheet();

    /// Throws `NBX::InputException` with one line that names the word at fault and what may stand there.
    static VectorStyleSheet parse(const std::string & specification);
    /// The content of a style file. The message names the line as well; `path`, the file, stands in front.
    static VectorStyleSheet parseFile(const std::string & text, const std::string & path = "");

    /// What it was parsed from, a specification or the content of a file; empty for the defaults.
    const std::string & text() const;
    /// How many there are; 1 for the defaults, which are taken for one.
    std::size_t rules() const;
    /// Of which features rule `rule` is, as it was written; "default" for all, and for a number out of range.
    std::string filterOf(std::size_t rule) const;

    /// The fields that filters and labels need, each once.
    const std::vector<std::string> & fields() const;
    /// Where these stand in the fields of `source`, for its query. Names are compared exactly, then without
    /// regard to case. Throws `NBX::InputException` that names the source, and the fields that it has.
    std::vector<unsigned> fieldsOf(const RASTER::FeatureSource & source) const;

    static constexpr std::size_t noRule = ~std::size_t(0);
    /// The number of the rule that holds for a feature: 0 for the first one, `noRule` where it is not drawn.
    /// `values` are those of `fields()`, in that order.
    std::size_t ruleOf(const Values & values) const;
    /// How a feature of that rule is drawn. `own` is the style that it brings along; what is wrong there
    /// is left out, and so is which label it has, and how large. Only points have symbols, only areas are
    /// filled. Any thread.
    VectorStyle styleOf(std::size_t rule, Kind kind, const std::string & own = {}) const;
    /// Both in one; without a rule nothing.
    VectorStyle styleOf(Kind kind, const Values & values, const std::string & own = {}) const;
    /// What the label of a feature says; empty for none. `values` as above.
    std::string labelOf(const VectorStyle & style, const Values & values) const;

    /// How far from its place a feature may be drawn, in metres: the widest line or symbol, and 16 pixels at
    /// least.
    double reach(double metresPerPixel) const;

    /// Whether some feature may have a label that lies on the ground, or one that stands upright.
    bool hasDrapedLabels() const;
    bool hasUprightLabels() const;

    /// A value as people read it; empty for nothing.
    static std::string textOf(const RASTER::FieldValue & value);

private:
    struct Rules;
    explicit VectorStyleSheet(std::shared_ptr<const Rules> rules);

    std::shared_ptr<const Rules> rules_; ///< never changed once it is here
};

} // namespace ZMT::CORE
