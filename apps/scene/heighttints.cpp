#include "heighttints.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

#include "landscape/errors.h"

#include <nbx/data/file.h>
#include <nbx/object/stringutils.h>
#include <zmt/util/colortable.h>

namespace {

using NBX::StringUtils;
using ZMT::CORE::ReliefImage;
using ZMT::UTIL::ColorTable;

constexpr const char * s_usualTints = "atlas";

/// At shares of the range of heights.
struct TintTable {
    const char * name;
    std::vector<ReliefImage::Tint> shares;
};

NBX::Color tintOf(int red, int green, int blue) {
    return {red / 255.0, green / 255.0, blue / 255.0};
}

const std::vector<TintTable> & tintTables() {
    static const std::vector<TintTable> tables = {
        {"grey", {{0.0, tintOf(60, 60, 60)}, {1.0, tintOf(250, 250, 250)}}},
        {"white", {{0.0, tintOf(255, 255, 255)}}},
        {"sand",
         {{0.0, tintOf(238, 222, 176)},
          {0.4, tintOf(214, 176, 118)},
          {0.75, tintOf(160, 110, 72)},
          {1.0, tintOf(98, 66, 52)}}},
        {"spectrum",
         {{0.0, tintOf(48, 60, 140)},
          {0.25, tintOf(50, 150, 160)},
          {0.5, tintOf(110, 190, 90)},
          {0.75, tintOf(240, 210, 80)},
          {1.0, tintOf(190, 50, 50)}}},
    };
    return tables;
}

/// Of two of one height the latter has a longer name: "0" and "0.0".
std::wstring nameOf(double height, const ColorTable & taken) {
    char text[400];
    std::string name(text, std::to_chars(text, text + sizeof text, height, std::chars_format::fixed).ptr);
    std::wstring unique = StringUtils::Utf8String2WString(name);
    if (name.find('.') == std::string::npos) name += '.';
    while (taken.entryExists(unique))
        unique = StringUtils::Utf8String2WString(name += '0');
    return unique;
}

std::optional<double> heightOf(const std::wstring & name) {
    const std::string text = StringUtils::WString2Utf8String(name);
    double height = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), height);
    const bool isHeight = error == std::errc() && end == text.data() + text.size() && std::isfinite(height);
    return isHeight ? std::optional(height) : std::nullopt;
}

} // namespace

const std::vector<std::string> & heightTintNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all = {s_usualTints};
        for (const TintTable & table : tintTables())
            all.emplace_back(table.name);
        return all;
    }();
    return names;
}

HeightTints namedHeightTints(const std::string & name, double low, double high) {
    for (const TintTable & table : tintTables()) {
        if (table.name != name) continue;
        HeightTints tints = table.shares;
        for (ReliefImage::Tint & tint : tints)
            tint.height = std::lerp(low, high, tint.height);
        return tints;
    }
    return ReliefImage::usualTints(low, high);
}

void sortHeightTints(HeightTints & tints) {
    std::stable_sort(tints.begin(), tints.end(),
                     [](const auto & a, const auto & b) { return a.height < b.height; });
}

void saveHeightTints(const HeightTints & tints, const std::string & path) {
    const NBX::SO<ColorTable> table(new ColorTable);
    for (const ReliefImage::Tint & tint : tints)
        table->newEntry(nameOf(tint.height, *table), tint.color);
    table->saveTable(StringUtils::Utf8String2WString(path));
}

HeightTints loadHeightTints(const std::string & path) {
    NBX::File::checkReadable(path);
    const NBX::SO<ColorTable> table(new ColorTable);
    if (!table->loadTable(StringUtils::Utf8String2WString(path), true) || table->entries() == 0)
        throw DataError(path + ": is no table of colours");
    HeightTints tints;
    tints.reserve(table->entries());
    const auto names = table->getEntries();
    for (const std::wstring & name : *names) {
        const auto height = heightOf(name);
        if (!height)
            throw DataError(path + ": has a colour whose name is no height: " +
                            oneLine(StringUtils::WString2Utf8String(name)));
        tints.push_back({*height, table->getColor(name)});
    }
    sortHeightTints(tints);
    return tints;
}
