// Rules are parsed into specifications once; a style is put together from the rule, what the feature brings
// along and the defaults of its kind.

#include <zmt/core/vector/vectorstylesheet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <map>
#include <mutex>
#include <string_view>
#include <tuple>
#include <utility>

#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

#include "stylefilter.h"
#include "stylespecification.h"

namespace ZMT::CORE {

namespace {

struct Rule {
    StyleFilter filter;
    StyleSpecification specification;
    std::string filterText = "default";
};

/// How many styles of features are kept; a source with more of them has its own for each feature.
constexpr std::size_t s_mostKept = 4096;

[[noreturn]] void fail(const std::string & message, const std::string & path) {
    throw NBX::InputException(NBX::StringUtils::Utf8String2WString(message), path);
}

/// Where the filter of a line ends; npos without an end.
std::size_t endOfFilter(std::string_view line) {
    bool isQuoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '"') isQuoted = !isQuoted;
        if (line[i] == ':' && !isQuoted) return i;
    }
    return std::string_view::npos;
}

Rule readRule(std::string_view line) {
    const std::size_t end = endOfFilter(line);
    if (end == std::string_view::npos)
        throw NBX::InputException(L"no \":\" behind the filter; expected FILTER: KEY=VALUE, ...");
    const std::string_view filter = line.substr(0, end);
    return {StyleFilter::parse(filter), StyleSpecification::parse(line.substr(end + 1)),
            std::string(StyleSpecification::trimmed(filter))};
}

std::vector<Rule> readRules(std::string_view text, const std::string & path) {
    std::vector<Rule> rules;
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    for (unsigned number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = StyleSpecification::trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty() || line.front() == '#') continue;
        try {
            rules.push_back(readRule(line));
        } catch (const NBX::InputException & e) {
            std::string message = path;
            if (!path.empty()) message.append(": ");
            fail(message.append("line ").append(std::to_string(number)).append(": ").append(e.what()), "");
        }
    }
    return rules;
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string namesOf(const std::vector<RASTER::VectorField> & fields) {
    std::string names;
    for (const RASTER::VectorField & field : fields) {
        if (!names.empty()) names += ", ";
        names += field.name;
    }
    return names.empty() ? "it has none" : "it has " + names;
}

unsigned numberOf(const std::string & name, const RASTER::FeatureSource & source) {
    const auto & fields = source.fields();
    const auto find = [&](auto isIt) {
        return static_cast<std::size_t>(std::find_if(fields.begin(), fields.end(), isIt) - fields.begin());
    };
    std::size_t number = find([&](const RASTER::VectorField & field) { return field.name == name; });
    if (number == fields.size())
        number =
            find([&](const RASTER::VectorField & field) { return lowered(field.name) == lowered(name); });
    if (number == fields.size())
        fail(source.name() + ": has no field \"" + name + "\"; " + namesOf(fields), "");
    return static_cast<unsigned>(number);
}

} // namespace

struct VectorStyleSheet::Rules {
    std::vector<Rule> rules;
    std::string text;
    std::vector<std::string> fields;

    explicit Rules(std::vector<Rule> given = {}, std::string parsed = {})
        : rules(std::move(given)), text(std::move(parsed)) {
        for (Rule & rule : rules) {
            for (StyleFilter::Condition & condition : rule.filter.conditions())
                condition.place = placeOf(condition.field);
            if (rule.specification.label) placeOf(*rule.specification.label);
        }
    }

    /// With an entry for a field that is new.
    unsigned placeOf(const std::string & field) {
        const auto found = std::find(fields.begin(), fields.end(), field);
        const auto place = static_cast<unsigned>(found - fields.begin());
        if (found == fields.end()) fields.push_back(field);
        return place;
    }

    VectorStyle make(std::size_t rule, Kind kind, const std::string & own) const {
        StyleSpecification specification;
        if (rule < rules.size()) specification = rules[rule].specification;
        if (own.empty()) return specification.style(kind);
        StyleSpecification brought = StyleSpecification::parseLeniently(own);
        brought.label.reset();
        brought.labelSize.reset();
        specification.complete(brought);
        return specification.style(kind);
    }

    VectorStyle style(std::size_t rule, Kind kind, const std::string & own) const {
        const std::scoped_lock lock(mutex_);
        if (kept_.size() >= s_mostKept) kept_.clear();
        auto [entry, isNew] = kept_.try_emplace({rule, kind, own});
        if (isNew) entry->second = make(rule, kind, own);
        return entry->second;
    }

private:
    struct Asked {
        std::size_t rule;
        Kind kind;
        std::string own;
        bool operator<(const Asked & other) const {
            return std::tie(rule, kind, own) < std::tie(other.rule, other.kind, other.own);
        }
    };
    mutable std::mutex mutex_; ///< guards what is below
    mutable std::map<Asked, VectorStyle> kept_;
};

VectorStyleSheet::VectorStyleSheet() : VectorStyleSheet(std::make_shared<const Rules>()) {}

VectorStyleSheet::VectorStyleSheet(std::shared_ptr<const Rules> rules) : rules_(std::move(rules)) {}

VectorStyleSheet VectorStyleSheet::parse(const std::string & specification) {
    std::vector<Rule> rules(1);
    rules.front().specification = StyleSpecification::parse(specification);
    return VectorStyleSheet(std::make_shared<const Rules>(std::move(rules), specification));
}

VectorStyleSheet VectorStyleSheet::parseFile(const std::string & text, const std::string & path) {
    std::vector<Rule> rules = readRules(text, path);
    if (rules.empty())
        fail((path.empty() ? "" : path + ": ") + "has no rule; expected lines FILTER: KEY=VALUE, ...", "");
    return VectorStyleSheet(std::make_shared<const Rules>(std::move(rules), text));
}

const std::string & VectorStyleSheet::text() const {
    return rules_->text;
}

std::size_t VectorStyleSheet::rules() const {
    return std::max<std::size_t>(rules_->rules.size(), 1);
}

std::string VectorStyleSheet::filterOf(std::size_t rule) const {
    return rule < rules_->rules.size() ? rules_->rules[rule].filterText : "default";
}

const std::vector<std::string> & VectorStyleSheet::fields() const {
    return rules_->fields;
}

std::vector<unsigned> VectorStyleSheet::fieldsOf(const RASTER::FeatureSource & source) const {
    std::vector<unsigned> numbers;
    numbers.reserve(fields().size());
    for (const std::string & field : fields())
        numbers.push_back(numberOf(field, source));
    return numbers;
}

std::size_t VectorStyleSheet::ruleOf(const Values & values) const {
    if (rules_->rules.empty()) return 0;
    const auto found = std::find_if(rules_->rules.begin(), rules_->rules.end(),
                                    [&](const Rule & rule) { return rule.filter.fits(values); });
    return found == rules_->rules.end() ? noRule : static_cast<std::size_t>(found - rules_->rules.begin());
}

VectorStyle VectorStyleSheet::styleOf(std::size_t rule, Kind kind, const std::string & own) const {
    return rule == noRule ? VectorStyle() : rules_->style(rule, kind, own);
}

VectorStyle VectorStyleSheet::styleOf(Kind kind, const Values & values, const std::string & own) const {
    return styleOf(ruleOf(values), kind, own);
}

std::string VectorStyleSheet::labelOf(const VectorStyle & style, const Values & values) const {
    if (!style.label) return {};
    const auto found = std::find(fields().begin(), fields().end(), style.label->field);
    const auto place = static_cast<std::size_t>(found - fields().begin());
    return place < values.size() ? textOf(values[place]) : std::string();
}

namespace {

bool hasLabel(const std::vector<Rule> & rules, VectorSize::Unit unit) {
    return std::any_of(rules.begin(), rules.end(), [unit](const Rule & rule) {
        const auto & size = rule.specification.labelSize;
        return rule.specification.label && (size ? size->unit : VectorSize::Unit::Pixels) == unit;
    });
}

} // namespace

double VectorStyleSheet::reach(double metresPerPixel) const {
    constexpr double leastPixels = 16.0;
    double reach = leastPixels * metresPerPixel;
    for (const Rule & rule : rules_->rules)
        for (const auto & size : {rule.specification.width, rule.specification.size})
            if (size) reach = std::max(reach, size->pixels(metresPerPixel) * metresPerPixel);
    return reach;
}

bool VectorStyleSheet::hasDrapedLabels() const {
    return hasLabel(rules_->rules, VectorSize::Unit::Metres);
}

bool VectorStyleSheet::hasUprightLabels() const {
    return hasLabel(rules_->rules, VectorSize::Unit::Pixels);
}

std::string VectorStyleSheet::textOf(const RASTER::FieldValue & value) {
    if (const auto * text = std::get_if<std::string>(&value)) return *text;
    if (const auto * whole = std::get_if<std::int64_t>(&value)) return std::to_string(*whole);
    const auto * real = std::get_if<double>(&value);
    if (!real) return {};
    // The shortest form of 100000 is 1e+05, which nobody wants to read.
    const double size = std::abs(*real);
    const bool isPlain = size == 0.0 || (size >= 1e-6 && size < 1e15);
    std::array<char, 32> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), *real,
                                      isPlain ? std::chars_format::fixed : std::chars_format::general);
    return {digits.data(), result.ptr};
}

} // namespace ZMT::CORE
