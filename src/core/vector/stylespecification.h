#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <zmt/core/vector/vectorstylesheet.h>

namespace ZMT::CORE {

/// The `key=value` pairs of a specification: what it says, and what it leaves open.
struct StyleSpecification {
    std::optional<NBX::Color> color, fill, labelColor, haloColor;
    std::optional<VectorSize> width, size, labelSize;
    std::optional<std::vector<double>> dash;
    std::optional<double> opacity, halo, labelFrom;
    std::optional<VectorStyle::Symbol::Form> symbol;
    std::optional<std::string> label;

    /// Throws `NBX::InputException` that names the word at fault and what may stand there.
    static StyleSpecification parse(std::string_view text);
    /// What can be understood of a specification; pairs that are wrong are left out.
    static StyleSpecification parseLeniently(std::string_view text);

    /// Takes from `other` what is open here.
    void complete(const StyleSpecification & other);
    /// With the defaults of a kind for what is still open.
    VectorStyle style(VectorStyleSheet::Kind kind) const;

    /// Without the blanks at both ends.
    static std::string_view trimmed(std::string_view text);
};

} // namespace ZMT::CORE
