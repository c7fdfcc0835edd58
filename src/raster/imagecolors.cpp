#include <zmt/raster/imagecolors.h>

#include <charconv>
#include <cmath>
#include <cstdio>

namespace ZMT::RASTER {

namespace {

constexpr unsigned s_mostBands = 65535;
constexpr double s_greatestGamma = 100.0;

std::vector<std::string> parts(const std::string & text, char separator) {
    std::vector<std::string> result(1);
    for (const char letter : text)
        if (letter == separator)
            result.emplace_back();
        else
            result.back() += letter;
    return result;
}

template <class Number> std::optional<Number> number(const std::string & text) {
    Number value{};
    const char * end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

std::string exact(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
}

} // namespace

bool ImageColors::setBands(const std::string & text) {
    std::vector<unsigned> result;
    for (const std::string & part : parts(text, ',')) {
        const auto band = number<unsigned>(part);
        if (!band || *band < 1 || *band > s_mostBands) return false;
        result.push_back(*band);
    }
    if (result.size() != 1 && result.size() != 3) return false;
    bands = std::move(result);
    return true;
}

bool ImageColors::setStretch(const std::string & text) {
    if (text == "auto" || text == "none") {
        stretch = text == "auto" ? Stretch::Auto : Stretch::None;
        return true;
    }
    const auto numbers = parts(text, ',');
    if (numbers.size() != 2) return false;
    const auto from = number<double>(numbers[0]), to = number<double>(numbers[1]);
    if (!from || !to || !(*from < *to) || !std::isfinite(*to - *from)) return false;
    stretch = Stretch::Range;
    low = *from;
    high = *to;
    return true;
}

bool ImageColors::setGamma(const std::string & text) {
    const auto value = number<double>(text);
    if (!value || !(*value > 0.0) || !(*value <= s_greatestGamma)) return false;
    gamma = *value;
    return true;
}

std::string ImageColors::text() const {
    std::string result;
    for (const unsigned band : bands)
        result += (result.empty() ? "" : ",") + std::to_string(band);
    result += ';';
    if (stretch == Stretch::Auto || stretch == Stretch::None)
        result += stretch == Stretch::Auto ? "auto" : "none";
    if (stretch == Stretch::Range) result += exact(low) + "," + exact(high);
    result += ';';
    if (gamma != 1.0) result += exact(gamma);
    return result == ";;" ? "" : result;
}

std::optional<ImageColors> ImageColors::parse(const std::string & text) {
    ImageColors result;
    if (text.empty()) return result;
    const auto fields = parts(text, ';');
    const bool isGood = fields.size() == 3 && (fields[0].empty() || result.setBands(fields[0])) &&
                        (fields[1].empty() || result.setStretch(fields[1])) &&
                        (fields[2].empty() || result.setGamma(fields[2]));
    return isGood ? std::optional(result) : std::nullopt;
}

} // namespace ZMT::RASTER
