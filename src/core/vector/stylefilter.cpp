// A filter is cut into words, and these are taken three by three: field, operator, value. What is a number in
// the filter is compared as one.

#include "stylefilter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <utility>

#include "stylewords.h"

namespace ZMT::CORE {

namespace {

using Operator = StyleFilter::Operator;

constexpr std::array<std::pair<std::string_view, Operator>, 6> s_operators{{
    {"=", Operator::Equal},
    {"!=", Operator::Unequal},
    {"<", Operator::Less},
    {"<=", Operator::LessEqual},
    {">", Operator::Greater},
    {">=", Operator::GreaterEqual},
}};
constexpr std::string_view s_signs = "=!<>";

struct Word {
    std::string text;
    enum class Type { Plain, Quoted, Signs } type;
    bool is(std::string_view plain) const { return type == Type::Plain && text == plain; }
};

std::string quoted(const std::string & text) {
    return "\"" + text + "\"";
}

std::vector<Word> wordsOf(std::string_view text) {
    std::vector<Word> words;
    for (std::size_t at = 0; (at = text.find_first_not_of(styleBlanks, at)) < text.size();) {
        std::size_t end = at;
        if (text[at] == '"') {
            end = text.find('"', at + 1);
            if (end == std::string_view::npos)
                failStyle(std::string(text.substr(at)) + " has no second quote; expected one");
            words.push_back({std::string(text.substr(at + 1, end - at - 1)), Word::Type::Quoted});
            at = end + 1;
            continue;
        }
        const bool isSign = s_signs.find(text[at]) != std::string_view::npos;
        const auto endsHere = [&](char c) {
            return isSign ? s_signs.find(c) == std::string_view::npos
                          : s_signs.find(c) != std::string_view::npos ||
                                styleBlanks.find(c) != std::string_view::npos || c == '"';
        };
        while (end < text.size() && !endsHere(text[end]))
            ++end;
        words.push_back(
            {std::string(text.substr(at, end - at)), isSign ? Word::Type::Signs : Word::Type::Plain});
        at = end;
    }
    return words;
}

template <class Number> std::optional<Number> numberOf(const std::string & text) {
    Number number{};
    const char * end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) return std::nullopt;
    return number;
}

Operator operatorOf(const Word & word, const std::string & field) {
    for (const auto & [sign, op] : s_operators)
        if (word.type == Word::Type::Signs && word.text == sign) return op;
    failStyle(
        quoted(word.text) + " behind the field " + quoted(field) +
        " is no comparison; expected one of = != < <= > >=, and a field of several words in double quotes");
}

/// Three words from `first` on.
StyleFilter::Condition conditionOf(const std::vector<Word> & words, std::size_t first) {
    const Word & field = words[first];
    if (field.type == Word::Type::Signs)
        failStyle(quoted(field.text) + " has no field in front of it; expected FIELD OP VALUE");
    if (first + 1 == words.size())
        failStyle(quoted(field.text) +
                  " is no filter; expected \"default\", or FIELD OP VALUE joined by \"and\"");
    const Operator op = operatorOf(words[first + 1], field.text);
    if (first + 2 == words.size() || words[first + 2].type == Word::Type::Signs)
        failStyle("no value behind " + quoted(field.text + " " + words[first + 1].text) +
                  "; expected a number or a text");
    const Word & value = words[first + 2];
    StyleFilter::Condition condition{field.text, op, value.text};
    if (value.type == Word::Type::Quoted) return condition;
    if (const auto whole = numberOf<std::int64_t>(value.text))
        condition.number = *whole;
    else if (const auto number = numberOf<double>(value.text); number && std::isfinite(*number))
        condition.number = *number;
    return condition;
}

template <class Value> bool compare(const Value & left, Operator op, const Value & right) {
    switch (op) {
    case Operator::Equal:
        return left == right;
    case Operator::Unequal:
        return left != right;
    case Operator::Less:
        return left < right;
    case Operator::LessEqual:
        return left <= right;
    case Operator::Greater:
        return left > right;
    case Operator::GreaterEqual:
        return left >= right;
    }
    return false;
}

/// Below, at or above 0 as `whole` is to `number`, which is one; no digit of either is lost.
int order(std::int64_t whole, double number) {
    constexpr double limit = 9223372036854775808.0;
    if (number >= limit) return -1;
    if (number < -limit) return 1;
    const auto cut = static_cast<std::int64_t>(number);
    if (whole != cut) return whole < cut ? -1 : 1;
    const double rest = number - static_cast<double>(cut);
    return rest > 0.0 ? -1 : rest < 0.0 ? 1 : 0;
}

} // namespace

bool StyleFilter::Condition::fits(const RASTER::FieldValue & value) const {
    if (const auto * own = std::get_if<std::string>(&value)) return compare(*own, op, text);
    const auto * whole = std::get_if<std::int64_t>(&value);
    const auto * real = std::get_if<double>(&value);
    const bool hasNumber = !std::holds_alternative<std::monostate>(number);
    if ((!whole && !real) || !hasNumber) return op == Operator::Unequal;
    const auto * asked = std::get_if<std::int64_t>(&number);
    if (whole && asked) return compare(*whole, op, *asked);
    if (real && std::isnan(*real)) return op == Operator::Unequal;
    if (whole) return compare(order(*whole, std::get<double>(number)), op, 0);
    if (asked) return compare(0, op, order(*asked, *real));
    return compare(*real, op, std::get<double>(number));
}

StyleFilter StyleFilter::parse(std::string_view text) {
    const std::vector<Word> words = wordsOf(text);
    StyleFilter filter;
    if (words.empty()) failStyle("no filter; expected \"default\", or FIELD OP VALUE joined by \"and\"");
    if (words.size() == 1 && words.front().is("default")) return filter;
    for (std::size_t i = 0; true; i += 4) {
        filter.conditions_.push_back(conditionOf(words, i));
        if (i + 3 == words.size()) return filter;
        if (!words[i + 3].is("and"))
            failStyle(quoted(words[i + 3].text) +
                      " follows a value; expected \"and\", or a value of several words in double quotes");
        if (i + 4 == words.size()) failStyle("nothing behind \"and\"; expected FIELD OP VALUE");
    }
}

bool StyleFilter::fits(const std::vector<RASTER::FieldValue> & values) const {
    static const RASTER::FieldValue nothing;
    return std::all_of(conditions_.begin(), conditions_.end(), [&](const Condition & condition) {
        return condition.fits(condition.place < values.size() ? values[condition.place] : nothing);
    });
}

} // namespace ZMT::CORE
