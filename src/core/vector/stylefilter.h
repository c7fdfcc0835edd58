#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <zmt/raster/featuresource.h>

namespace ZMT::CORE {

/// Conditions on the fields of a feature, all of which must hold.
class StyleFilter {
public:
    enum class Operator { Equal, Unequal, Less, LessEqual, Greater, GreaterEqual };
    struct Condition {
        std::string field;
        Operator op;
        std::string text;                                            ///< of the value
        std::variant<std::monostate, std::int64_t, double> number{}; ///< where it is one
        unsigned place = 0;                                          ///< of the field among the values

        bool fits(const RASTER::FieldValue & value) const;
    };

    /// `default`, or `FIELD OP VALUE` joined by `and`. Throws `NBX::InputException` that names the word at
    /// fault and what may stand there.
    static StyleFilter parse(std::string_view text);

    std::vector<Condition> & conditions() { return conditions_; }
    /// `values` are those that the places of the conditions mean; one beyond them is missing.
    bool fits(const std::vector<RASTER::FieldValue> & values) const;

private:
    std::vector<Condition> conditions_; ///< none: everything fits
};

} // namespace ZMT::CORE
