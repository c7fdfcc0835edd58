// A table of keys, each with the function that reads its value; messages name the pair, then what may stand
// in its place.

#include "stylespecification.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include <nbx/object/exception.h>

#include "coloropacity.h"
#include "stylewords.h"

namespace ZMT::CORE {

namespace {

using Form = VectorStyle::Symbol::Form;
using Kind = VectorStyleSheet::Kind;
using Unit = VectorSize::Unit;

constexpr double s_mostPixels = 1000.0;
constexpr double s_mostMetres = 1e6;
constexpr std::size_t s_mostDashes = 16;

const NBX::Color s_dark(0.15F, 0.15F, 0.2F);
const NBX::Color s_plainFill(0.25F, 0.45F, 0.75F);
constexpr float s_fillShare = 0.25F; ///< of the opacity of a line's colour
constexpr double s_lineWidth = 1.5, s_symbolSize = 6.0, s_labelSize = 12.0;
constexpr double s_haloShare = 0.125; ///< of the size of a label

constexpr std::array<std::pair<std::string_view, std::uint32_t>, 20> s_colors{{
    {"black", 0x000000FF},  {"white", 0xFFFFFFFF},  {"gray", 0x808080FF},    {"grey", 0x808080FF},
    {"silver", 0xC0C0C0FF}, {"red", 0xFF0000FF},    {"maroon", 0x800000FF},  {"orange", 0xFFA500FF},
    {"brown", 0xA52A2AFF},  {"yellow", 0xFFFF00FF}, {"olive", 0x808000FF},   {"lime", 0x00FF00FF},
    {"green", 0x008000FF},  {"cyan", 0x00FFFFFF},   {"teal", 0x008080FF},    {"blue", 0x0000FFFF},
    {"navy", 0x000080FF},   {"purple", 0x800080FF}, {"magenta", 0xFF00FFFF}, {"transparent", 0x00000000},
}};

constexpr std::array<std::pair<std::string_view, Form>, 5> s_forms{{
    {"circle", Form::Circle},
    {"square", Form::Square},
    {"diamond", Form::Diamond},
    {"triangle", Form::Triangle},
    {"cross", Form::Cross},
}};

/// What is wrong with a pair.
struct Wrong {
    std::string expected;
};

template <class Table> std::string namesOf(const Table & table) {
    std::string names;
    for (const auto & entry : table) {
        if (!names.empty()) names += ", ";
        names += entry.first;
    }
    return names;
}

NBX::Color colorOf(std::uint32_t rgba) {
    const auto share = [rgba](unsigned shift) { return float((rgba >> shift) & 0xFFU) / 255.0F; };
    return {share(24), share(16), share(8), share(0)};
}

NBX::Color readColor(std::string_view text) {
    if (text.starts_with('#') && (text.size() == 7 || text.size() == 9)) {
        std::uint32_t number = 0;
        const char * end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data() + 1, end, number, 16);
        if (error == std::errc() && stop == end)
            return colorOf(text.size() == 7 ? (number << 8) | 0xFFU : number);
    }
    for (const auto & [name, rgba] : s_colors)
        if (text == name) return colorOf(rgba);
    throw Wrong{"expected a colour: #rrggbb, #rrggbbaa, or one of " + namesOf(s_colors)};
}

/// False where the whole text is not a finite number.
bool isNumber(std::string_view text, double & number) {
    const char * end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && std::isfinite(number);
}

double readNumber(std::string_view text, double least, double most, const char * expected) {
    double number = 0.0;
    if (!isNumber(text, number) || number < least || number > most) throw Wrong{expected};
    return number;
}

VectorSize readSize(std::string_view text) {
    constexpr const char * expected =
        "expected pixels, from 0 to 1000, or metres, from 0m to 1000000m, such as 2 or 8m";
    if (text.ends_with('m'))
        return {readNumber(StyleSpecification::trimmed(text.substr(0, text.size() - 1)), 0.0, s_mostMetres,
                           expected),
                Unit::Metres};
    return {readNumber(text, 0.0, s_mostPixels, expected), Unit::Pixels};
}

std::vector<double> readDash(std::string_view text) {
    constexpr const char * expected =
        "expected up to 16 lengths in pixels, parted by blanks, the dashes above 0, such as 4 2";
    std::vector<double> lengths;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of(styleBlanks), text.size());
        if (lengths.size() == s_mostDashes) throw Wrong{expected};
        lengths.push_back(readNumber(text.substr(0, end), 0.0, s_mostPixels, expected));
        text = StyleSpecification::trimmed(text.substr(end));
    }
    for (std::size_t i = 0; i < lengths.size(); i += 2)
        if (lengths[i] <= 0.0) throw Wrong{expected};
    if (lengths.empty()) throw Wrong{expected};
    // Dashes and gaps change places in the second round.
    if (lengths.size() % 2 == 1) lengths.insert(lengths.end(), lengths.begin(), lengths.end());
    return lengths;
}

Form readForm(std::string_view text) {
    for (const auto & [name, form] : s_forms)
        if (text == name) return form;
    throw Wrong{"expected one of " + namesOf(s_forms)};
}

std::string readField(std::string_view text) {
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
    if (text.empty()) throw Wrong{"expected the name of a field"};
    return std::string(text);
}

double readScale(std::string_view text) {
    constexpr const char * expected = "expected a scale such as 1:50000";
    if (!text.starts_with("1:")) throw Wrong{expected};
    return readNumber(StyleSpecification::trimmed(text.substr(2)), 1.0, 1e12, expected);
}

double readShare(std::string_view text) {
    return readNumber(text, 0.0, 1.0, "expected a number from 0 to 1");
}

double readHalo(std::string_view text) {
    return readNumber(text, 0.0, s_mostMetres, "expected a width of 0 or more, in the unit of label-size");
}

VectorSize readLabelSize(std::string_view text) {
    const VectorSize size = readSize(text);
    if (size.value <= 0.0) throw Wrong{"expected a size above 0, such as 12 or 500m"};
    return size;
}

struct Key {
    std::string_view name;
    /// False where the key stood before.
    bool (*read)(StyleSpecification & specification, std::string_view value);
};

template <auto Member, auto Read> bool readInto(StyleSpecification & specification, std::string_view value) {
    const bool isFirst = !(specification.*Member);
    specification.*Member = Read(value);
    return isFirst;
}

using S = StyleSpecification;
constexpr std::array<Key, 13> s_keys{{
    {"color", readInto<&S::color, readColor>},
    {"width", readInto<&S::width, readSize>},
    {"dash", readInto<&S::dash, readDash>},
    {"fill", readInto<&S::fill, readColor>},
    {"opacity", readInto<&S::opacity, readShare>},
    {"symbol", readInto<&S::symbol, readForm>},
    {"size", readInto<&S::size, readSize>},
    {"label", readInto<&S::label, readField>},
    {"label-size", readInto<&S::labelSize, readLabelSize>},
    {"label-color", readInto<&S::labelColor, readColor>},
    {"halo", readInto<&S::halo, readHalo>},
    {"halo-color", readInto<&S::haloColor, readColor>},
    {"label-from", readInto<&S::labelFrom, readScale>},
}};

std::string keyNames() {
    std::string names;
    for (const Key & key : s_keys) {
        if (!names.empty()) names += ", ";
        names += key.name;
    }
    return names;
}

void readPair(std::string_view pair, StyleSpecification & specification) {
    const std::size_t sign = pair.find('=');
    const std::string_view name = S::trimmed(pair.substr(0, sign));
    const auto * key = std::find_if(s_keys.begin(), s_keys.end(),
                                    [&](const Key & each) { return !name.empty() && each.name == name; });
    if (key == s_keys.end())
        failStyle("\"" + std::string(pair) + "\" is no part of a style; expected KEY=VALUE with KEY one of " +
                  keyNames());
    if (sign == std::string_view::npos)
        failStyle("\"" + std::string(pair) + "\" has no value; expected " + std::string(name) + "=VALUE");
    try {
        if (!key->read(specification, S::trimmed(pair.substr(sign + 1))))
            failStyle("\"" + std::string(name) + "\" stands twice; expected it once");
    } catch (const Wrong & wrong) {
        failStyle("\"" + std::string(pair) + "\": " + wrong.expected);
    }
}

/// The pairs between commas, without blanks around them.
std::vector<std::string_view> pairsOf(std::string_view text) {
    std::vector<std::string_view> pairs;
    for (bool isQuoted = false; true;) {
        std::size_t end = 0;
        for (; end < text.size() && (isQuoted || text[end] != ','); ++end)
            if (text[end] == '"') isQuoted = !isQuoted;
        pairs.push_back(S::trimmed(text.substr(0, end)));
        if (end >= text.size()) return pairs;
        text.remove_prefix(end + 1);
        isQuoted = false;
    }
}

bool isVisible(const NBX::Color & color) {
    return color[3] > 0.0F;
}

VectorStyle::Label labelOf(const StyleSpecification & specification) {
    VectorStyle::Label label;
    label.field = *specification.label;
    label.size = specification.labelSize.value_or(VectorSize{s_labelSize});
    label.color = specification.labelColor.value_or(NBX::Color::black);
    label.haloWidth = specification.halo.value_or(label.size.value * s_haloShare);
    label.haloColor = specification.haloColor.value_or(NBX::Color::white);
    label.smallestScale = specification.labelFrom.value_or(0.0);
    return label;
}

} // namespace

std::string_view StyleSpecification::trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(styleBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(styleBlanks) - first + 1);
}

StyleSpecification StyleSpecification::parse(std::string_view text) {
    StyleSpecification specification;
    for (const std::string_view pair : pairsOf(text))
        readPair(pair, specification);
    return specification;
}

StyleSpecification StyleSpecification::parseLeniently(std::string_view text) {
    StyleSpecification specification;
    for (const std::string_view pair : pairsOf(text)) {
        try {
            readPair(pair, specification);
        } catch (const NBX::InputException &) { // it says nothing then
        }
    }
    return specification;
}

void StyleSpecification::complete(const StyleSpecification & other) {
    const auto take = [](auto & own, const auto & others) {
        if (!own) own = others;
    };
    take(color, other.color);
    take(fill, other.fill);
    take(labelColor, other.labelColor);
    take(haloColor, other.haloColor);
    take(width, other.width);
    take(size, other.size);
    take(labelSize, other.labelSize);
    take(dash, other.dash);
    take(opacity, other.opacity);
    take(halo, other.halo);
    take(labelFrom, other.labelFrom);
    take(symbol, other.symbol);
    take(label, other.label);
}

VectorStyle StyleSpecification::style(VectorStyleSheet::Kind kind) const {
    VectorStyle style;
    const double share = opacity.value_or(1.0);
    const NBX::Color ink = withOpacity(color.value_or(s_dark), share);
    const VectorSize lineWidth = width.value_or(VectorSize{s_lineWidth});
    const VectorSize symbolSize = size.value_or(VectorSize{s_symbolSize});
    if (kind == Kind::Area) {
        const NBX::Color plain = withOpacity(color.value_or(s_plainFill), s_fillShare);
        const NBX::Color inside = withOpacity(fill.value_or(plain), share);
        if (isVisible(inside)) style.fill = inside;
    }
    if (kind != Kind::Point && isVisible(ink) && lineWidth.value > 0.0)
        style.stroke = VectorStyle::Stroke{ink, lineWidth, dash.value_or(std::vector<double>())};
    if (kind == Kind::Point && isVisible(ink) && symbolSize.value > 0.0)
        style.symbol = VectorStyle::Symbol{symbol.value_or(Form::Circle), ink, symbolSize};
    if (label) style.label = labelOf(*this);
    return style;
}

} // namespace ZMT::CORE
