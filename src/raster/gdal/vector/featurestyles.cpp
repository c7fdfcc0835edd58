// Feature styles as OGR describes them (Feature Style Specification, 2014): pens, brushes, symbols and labels
// become keys and values. Lengths are given in units of paper, which become pixels of 0.28 mm, or of the
// ground.

#include "featurestyles.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include <ogr_feature.h>
#include <ogr_featurestyle.h>

namespace ZMT::RASTER {

namespace {

/// The side of a pixel, as in scales of maps.
constexpr double s_pixelMillimetres = 0.28;

std::string numberText(double number) {
    char text[32];
    const double rounded = std::round(number * 1000.0) / 1000.0;
    return {text, std::to_chars(text, text + sizeof text, rounded).ptr};
}

/// The raw text of a parameter; empty where there is none.
std::string parameter(const std::string & part, const std::string & key) {
    bool isQuoted = false;
    const std::size_t open = part.find('(');
    for (std::size_t i = open; i < part.size(); ++i) {
        if (part[i] == '"' && part[i - 1] != '\\') isQuoted = !isQuoted;
        if (isQuoted || (part[i] != '(' && part[i] != ',')) continue;
        std::size_t name = i + 1;
        while (name < part.size() && part[name] == ' ')
            ++name;
        if (part.compare(name, key.size() + 1, key + ":") != 0) continue;
        const std::size_t begin = name + key.size() + 1;
        if (begin < part.size() && part[begin] == '"') {
            const std::size_t end = part.find('"', begin + 1);
            return part.substr(begin + 1, end == std::string::npos ? end : end - begin - 1);
        }
        return part.substr(begin, part.find_first_of(",)", begin) - begin);
    }
    return "";
}

/// A length in the words of our styles: pixels, or metres with an "m" behind.
std::optional<std::string> length(const std::string & text, double metres) {
    const char * end = nullptr;
    double number = 0.0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    end = rest;
    if (error != std::errc() || !(number > 0.0 && number < 1e6)) return std::nullopt;
    const std::string unit(end, text.data() + text.size());
    if (unit == "g") return metres > 0.0 ? std::optional(numberText(number * metres) + "m") : std::nullopt;
    const double millimetres = unit == "px"   ? s_pixelMillimetres
                               : unit == "pt" ? 25.4 / 72.0
                               : unit == "cm" ? 10.0
                               : unit == "in" ? 25.4
                                              : 1.0;
    return numberText(number * millimetres / s_pixelMillimetres);
}

/// "#rrggbb" or "#rrggbbaa"; empty for what is no colour.
std::string color(const std::string & text) {
    if (text.size() != 7 && text.size() != 9) return "";
    const bool isHex = text[0] == '#' && std::all_of(text.begin() + 1, text.end(),
                                                     [](unsigned char c) { return std::isxdigit(c); });
    return isHex ? text : "";
}

/// The names of the registered symbols, by their number.
std::string symbolName(const std::string & ids) {
    constexpr const char * names[] = {"cross",    "cross",    "circle",  "circle",  "square", "square",
                                      "triangle", "triangle", "diamond", "diamond", "cross"};
    const std::size_t at = ids.find("ogr-sym-");
    if (at == std::string::npos) return "circle";
    const auto number = static_cast<std::size_t>(std::atoi(ids.c_str() + at + 8));
    return number < std::size(names) ? names[number] : "circle";
}

/// The field whose value a label shows: by its name in braces, or because it has the same value.
std::string labelField(OGRFeature & feature, const std::string & text) {
    if (text.size() > 2 && text.front() == '{' && text.find('}') == text.size() - 1)
        return text.substr(1, text.size() - 2);
    for (int i = 0; i < feature.GetFieldCount(); ++i)
        if (!text.empty() && feature.IsFieldSetAndNotNull(i) && text == feature.GetFieldAsString(i))
            return feature.GetFieldDefnRef(i)->GetNameRef();
    return "";
}

class Specification {
public:
    void add(const char * key, const std::string & value) {
        const bool isSafe = value.find_first_of(",=\n\r") == std::string::npos;
        if (value.empty() || !isSafe || has(key)) return;
        keys_.emplace_back(key);
        text_.append(text_.empty() ? "" : ", ").append(key).append("=").append(value);
    }
    void add(const char * key, const std::optional<std::string> & value) {
        if (value) add(key, *value);
    }
    bool has(const std::string & key) const {
        return std::find(keys_.begin(), keys_.end(), key) != keys_.end();
    }
    const std::string & text() const { return text_; }

private:
    std::vector<std::string> keys_;
    std::string text_;
};

void addPen(const std::string & part, double metres, Specification & result) {
    if (parameter(part, "id").find("ogr-pen-1") != std::string::npos) return; // draws nothing
    const std::string stroke = color(parameter(part, "c"));
    result.add("color", stroke.empty() ? "#000000" : stroke);
    result.add("width", length(parameter(part, "w"), metres));
    std::string dash, pattern = parameter(part, "p");
    for (std::size_t begin = 0; begin < pattern.size();) {
        const std::size_t end = std::min(pattern.find(' ', begin), pattern.size());
        if (const auto one = length(pattern.substr(begin, end - begin), 0.0))
            dash += (dash.empty() ? "" : " ") + *one;
        begin = end + 1;
    }
    result.add("dash", dash);
}

void addSymbol(const std::string & part, double metres, Specification & result) {
    result.add("symbol", symbolName(parameter(part, "id")));
    result.add("color", color(parameter(part, "c")));
    result.add("size", length(parameter(part, "s"), metres));
}

void addLabel(const std::string & part, double metres, OGRFeature & feature, Specification & result) {
    const std::string field = labelField(feature, parameter(part, "t"));
    if (field.empty() || result.has("label")) return;
    result.add("label", field);
    result.add("label-size", length(parameter(part, "s"), metres));
    result.add("label-color", color(parameter(part, "c")));
    if (const std::string halo = color(parameter(part, "o")); !halo.empty()) {
        result.add("halo", std::string("1.5"));
        result.add("halo-color", halo);
    }
}

} // namespace

const std::string & FeatureStyles::of(OGRFeature & feature) {
    constexpr std::size_t most = 4096, longest = 4096;
    static const std::string none;
    const char * said = feature.GetStyleString();
    if (!said || !*said || strnlen(said, longest) == longest) return none;
    const std::string key = said;
    const bool hasLabel = key.find("LABEL") != std::string::npos && key.find("t:\"{") == std::string::npos;
    if (const auto found = known_.find(key); found != known_.end() && !hasLabel) return found->second;
    if (known_.size() >= most) known_.clear();
    OGRStyleMgr manager;
    manager.InitFromFeature(&feature);
    Specification result;
    for (int i = 0; i < manager.GetPartCount(); ++i) {
        const std::unique_ptr<OGRStyleTool> tool(manager.GetPart(i));
        const char * text = tool ? tool->GetStyleString() : nullptr;
        if (!text) continue;
        const OGRSTClassId kind = tool->GetType();
        if (kind == OGRSTCPen) addPen(text, metres_, result);
        if (kind == OGRSTCBrush && parameter(text, "id").find("ogr-brush-1") == std::string::npos)
            result.add("fill", color(parameter(text, "fc")));
        if (kind == OGRSTCSymbol) addSymbol(text, metres_, result);
        if (kind == OGRSTCLabel) addLabel(text, metres_, feature, result);
    }
    return known_[key] = result.text();
}

} // namespace ZMT::RASTER
