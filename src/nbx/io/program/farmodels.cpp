// The library of readers keeps numbers in single precision. Its files are therefore rewritten before it sees
// them: the numbers that say where something lies lose what they have in common with the first of them, in
// double precision, and the caller puts that back as a translation in front of everything. Where the text is
// not plainly understood it stays as it is, which costs precision and nothing else.

#include "farmodels.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string_view>
#include <vector>

#include <pugixml.hpp>

namespace NBX {

namespace {

using Place = std::array<double, 3>;

/// Whole numbers of units, so that differences to them are exact.
constexpr double s_step = 100.0;

bool isFar(const Place & place) {
    for (const double x : place)
        if (std::abs(x) >= s_far && std::abs(x) < 1e12) return true;
    return false;
}

Place originOf(const Place & first) {
    Place origin{};
    for (unsigned i = 0; i < 3; ++i)
        if (std::abs(first[i]) >= s_far && std::abs(first[i]) < 1e12)
            origin[i] = s_step * std::round(first[i] / s_step);
    return origin;
}

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/// The numbers of a list; false where something else stands in it.
bool numbersOf(std::string_view text, std::vector<double> & numbers) {
    numbers.clear();
    const char * at = text.data();
    const char * end = at + text.size();
    for (;;) {
        while (at != end && isSpace(*at))
            ++at;
        if (at == end) return true;
        double number = 0.0;
        const auto [next, error] = std::from_chars(*at == '+' ? at + 1 : at, end, number);
        if (error != std::errc() || (next != end && !isSpace(*next)) || !std::isfinite(number)) return false;
        numbers.push_back(number);
        at = next;
    }
}

void append(std::string & text, double number) {
    std::array<char, 40> digits;
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    text.append(digits.data(), result.ptr);
    text += ' ';
}

std::string textOf(const std::vector<double> & numbers) {
    std::string text;
    for (const double number : numbers)
        append(text, number);
    return text;
}

/// What stands behind the "v" of a vertex; nothing for other lines.
std::optional<std::string_view> vertexOf(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos || first + 1 >= line.size()) return std::nullopt;
    const bool isVertex = line[first] == 'v' && (line[first + 1] == ' ' || line[first + 1] == '\t');
    return isVertex ? std::optional(line.substr(first + 1)) : std::nullopt;
}

using Elements = std::vector<pugi::xml_node>;

/// Elements of that name anywhere below, in their order, without recursion.
Elements elementsOf(pugi::xml_document & document, const char * name) {
    struct Walker : pugi::xml_tree_walker {
        const char * name = nullptr;
        Elements found;
        bool for_each(pugi::xml_node & node) override {
            if (!std::strcmp(node.name(), name)) found.push_back(node);
            return true;
        }
    } walker;
    walker.name = name;
    document.traverse(walker);
    return walker.found;
}

bool isTransformation(const pugi::xml_node & node) {
    for (const char * name : {"translate", "matrix", "rotate", "scale", "skew", "lookat"})
        if (!std::strcmp(node.name(), name)) return true;
    return false;
}

pugi::xml_node firstTransformation(const pugi::xml_node & node) {
    for (const pugi::xml_node child : node.children())
        if (isTransformation(child)) return child;
    return {};
}

/// Where an outermost translation or matrix has its three numbers; nothing for other transformations.
std::optional<std::array<unsigned, 3>> placeIn(const pugi::xml_node & transformation,
                                               const std::vector<double> & numbers) {
    if (!std::strcmp(transformation.name(), "translate") && numbers.size() == 3)
        return std::array<unsigned, 3>{0, 1, 2};
    if (!std::strcmp(transformation.name(), "matrix") && numbers.size() == 16)
        return std::array<unsigned, 3>{3, 7, 11};
    return std::nullopt;
}

/// Changes all elements or none: every one of `nodes` has its numbers at the places that `placesOf` gives.
template <class PlacesOf> std::optional<Place> bringNear(const Elements & elements, PlacesOf placesOf) {
    std::optional<Place> origin;
    std::vector<std::string> texts;
    std::vector<double> numbers;
    for (const pugi::xml_node element : elements) {
        if (!numbersOf(element.text().get(), numbers)) return std::nullopt;
        const std::vector<std::array<unsigned, 3>> places = placesOf(element, numbers);
        if (places.empty()) return std::nullopt;
        for (const auto & at : places) {
            if (!origin) origin = originOf({numbers[at[0]], numbers[at[1]], numbers[at[2]]});
            for (unsigned i = 0; i < 3; ++i)
                numbers[at[i]] -= (*origin)[i];
        }
        texts.push_back(textOf(numbers));
    }
    if (!origin || *origin == Place{}) return std::nullopt;
    for (std::size_t i = 0; i < elements.size(); ++i)
        pugi::xml_node(elements[i]).text().set(texts[i].c_str());
    return origin;
}

/// The first transformations of the outermost nodes; empty where one of these has none.
Elements outermost(pugi::xml_document & document) {
    Elements found;
    for (const pugi::xml_node scene : elementsOf(document, "visual_scene"))
        for (const pugi::xml_node node : scene.children("node")) {
            const pugi::xml_node first = firstTransformation(node);
            if (!first) return {};
            found.push_back(first);
        }
    return found;
}

/// The lists of the positions of all vertices; empty where a node has a transformation, or a list is used for
/// something else too.
Elements positions(pugi::xml_document & document) {
    for (const pugi::xml_node node : elementsOf(document, "node"))
        if (firstTransformation(node)) return {};
    std::set<std::string> names, others;
    for (const pugi::xml_node input : elementsOf(document, "input")) {
        const bool isPosition = !std::strcmp(input.attribute("semantic").value(), "POSITION");
        const char * source = input.attribute("source").value();
        (isPosition ? names : others).insert(*source == '#' ? source + 1 : source);
    }
    Elements found;
    for (const pugi::xml_node source : elementsOf(document, "source")) {
        const std::string name = source.attribute("id").value();
        if (!names.count(name)) continue;
        const int stride = source.child("technique_common").child("accessor").attribute("stride").as_int(1);
        if (others.count(name) || stride != 3 || !source.child("float_array")) return {};
        found.push_back(source.child("float_array"));
    }
    return found;
}

/// What the head of a PLY file says of its vertices, which come first, and have no lists.
struct PlyHead {
    struct Property {
        std::string type, name;
    };

    bool isText = false, isBigEndian = false;
    std::uint64_t vertices = 0;
    std::vector<Property> properties;     ///< of a vertex
    std::array<std::size_t, 3> places{};  ///< of x, y and z among them
    std::array<std::size_t, 3> offsets{}; ///< of these in the bytes of a vertex
    std::size_t stride = 0;               ///< these bytes; 0 where a type is unknown
    std::size_t end = 0;                  ///< where the vertices begin

    static std::optional<PlyHead> read(const std::string & bytes);

private:
    bool take(const std::vector<std::string> & words, unsigned & elements);
    bool findPlaces();
};

std::size_t sizeOfPly(const std::string & type) {
    static const std::map<std::string, std::size_t> sizes = {
        {"char", 1},  {"uchar", 1},   {"int8", 1},   {"uint8", 1},  {"short", 2}, {"ushort", 2},
        {"int16", 2}, {"uint16", 2},  {"int", 4},    {"uint", 4},   {"int32", 4}, {"uint32", 4},
        {"float", 4}, {"float32", 4}, {"double", 8}, {"float64", 8}};
    const auto found = sizes.find(type);
    return found == sizes.end() ? 0 : found->second;
}

std::vector<std::string> wordsOf(const std::string & line) {
    std::istringstream stream(line);
    return {std::istream_iterator<std::string>(stream), {}};
}

/// One line of the head; false for what is not understood.
bool PlyHead::take(const std::vector<std::string> & words, unsigned & elements) {
    if (words.empty() || words[0] == "comment" || words[0] == "obj_info" || words[0] == "ply") return true;
    if (words[0] == "format" && words.size() == 3) {
        isText = words[1] == "ascii";
        isBigEndian = words[1] == "binary_big_endian";
        return isText || isBigEndian || words[1] == "binary_little_endian";
    }
    if (words[0] == "element" && words.size() == 3) {
        if (++elements > 1) return true;
        const std::string & count = words[2];
        const auto [end, error] = std::from_chars(count.data(), count.data() + count.size(), vertices);
        return words[1] == "vertex" && error == std::errc() && end == count.data() + count.size();
    }
    if (words[0] != "property") return false;
    if (elements != 1) return elements > 1;
    properties.push_back({words.size() == 3 ? words[1] : "list", words.size() == 3 ? words[2] : ""});
    return words.size() == 3;
}

bool PlyHead::findPlaces() {
    std::array<bool, 3> isThere{};
    bool isKnown = true;
    for (std::size_t i = 0; i < properties.size(); ++i) {
        for (std::size_t c = 0; c < 3; ++c)
            if (properties[i].name == std::string(1, char('x' + c))) {
                isThere[c] = true;
                places[c] = i;
                offsets[c] = stride;
            }
        isKnown = isKnown && sizeOfPly(properties[i].type) > 0;
        stride += sizeOfPly(properties[i].type);
    }
    if (!isKnown) stride = 0;
    return isThere[0] && isThere[1] && isThere[2];
}

std::optional<PlyHead> PlyHead::read(const std::string & bytes) {
    if (bytes.compare(0, 3, "ply") != 0) return std::nullopt;
    PlyHead head;
    unsigned elements = 0;
    for (std::size_t begin = 0;;) {
        const std::size_t newline = bytes.find('\n', begin);
        if (newline == std::string::npos) return std::nullopt;
        const std::vector<std::string> words = wordsOf(bytes.substr(begin, newline - begin));
        begin = head.end = newline + 1;
        if (!words.empty() && words[0] == "end_header") break;
        if (!head.take(words, elements)) return std::nullopt;
    }
    return head.findPlaces() ? std::optional(head) : std::nullopt;
}

/// Appends the vertices, less what they have in common, and what follows them; false for what is not
/// understood.
bool movePlyLines(const std::string & bytes, const PlyHead & head, NearModel & result) {
    std::size_t begin = head.end;
    for (std::uint64_t i = 0; i < head.vertices; ++i) {
        const std::size_t newline = bytes.find('\n', begin);
        if (newline == std::string::npos) return false;
        std::vector<std::string> words = wordsOf(bytes.substr(begin, newline - begin));
        begin = newline + 1;
        if (words.size() != head.properties.size()) return false;
        Place place;
        std::vector<double> numbers;
        for (std::size_t c = 0; c < 3; ++c) {
            if (!numbersOf(words[head.places[c]], numbers) || numbers.size() != 1) return false;
            place[c] = numbers[0];
        }
        if (i == 0 && !isFar(place)) return false;
        if (i == 0) result.origin = originOf(place);
        for (std::size_t c = 0; c < 3; ++c)
            words[head.places[c]] = textOf({place[c] - result.origin[c]});
        for (const std::string & word : words)
            result.text.append(word).append(1, ' ');
        result.text.append(1, '\n');
    }
    result.text.append(bytes, begin);
    return true;
}

/// In the order of the file's bytes and back, for machines of little-endian order.
double plyNumber(std::array<char, 8> bytes, bool isBigEndian) {
    if (isBigEndian) std::reverse(bytes.begin(), bytes.end());
    return std::bit_cast<double>(bytes);
}

bool movePlyNumbers(const std::string & bytes, const PlyHead & head, NearModel & result) {
    const std::size_t left = bytes.size() - head.end;
    for (const std::size_t place : head.places)
        if (sizeOfPly(head.properties[place].type) != sizeof(double)) return false;
    if (head.stride == 0 || head.vertices == 0 || head.vertices > left / head.stride) return false;
    result.text = bytes;
    for (std::uint64_t i = 0; i < head.vertices; ++i)
        for (std::size_t c = 0; c < 3; ++c) {
            char * at = result.text.data() + head.end + i * head.stride + head.offsets[c];
            std::array<char, sizeof(double)> number;
            std::copy_n(at, number.size(), number.begin());
            const double value = plyNumber(number, head.isBigEndian);
            if (i == 0) result.origin[c] = originOf({value, 0.0, 0.0})[0];
            if (i == 1 && result.origin == Place{}) return false;
            number = std::bit_cast<std::array<char, sizeof(double)>>(value - result.origin[c]);
            if (head.isBigEndian) std::reverse(number.begin(), number.end());
            std::copy(number.begin(), number.end(), at);
        }
    return true;
}

} // namespace

std::optional<NearModel> nearObj(const std::string & text) {
    NearModel result{"", {}};
    bool hasOrigin = false;
    std::vector<double> numbers;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t newline = text.find('\n', begin);
        const std::size_t end = newline == std::string::npos ? text.size() : newline + 1;
        const std::string_view line(text.data() + begin, end - begin);
        begin = end;
        const auto vertex = vertexOf(line);
        if (!vertex) {
            result.text += line;
            continue;
        }
        // A fourth number divides the others; six are coordinates and a colour.
        if (!numbersOf(*vertex, numbers) || (numbers.size() != 3 && numbers.size() != 6)) return std::nullopt;
        if (!hasOrigin) {
            const Place first = {numbers[0], numbers[1], numbers[2]};
            if (!isFar(first)) return std::nullopt;
            result.origin = originOf(first);
            hasOrigin = true;
        }
        for (unsigned i = 0; i < 3; ++i)
            numbers[i] -= result.origin[i];
        result.text += "v " + textOf(numbers) + '\n';
    }
    return hasOrigin ? std::optional(result) : std::nullopt;
}

std::optional<NearModel> nearPly(const std::string & bytes) {
    const std::optional<PlyHead> head = PlyHead::read(bytes);
    if (!head) return std::nullopt;
    NearModel result{bytes.substr(0, head->end), {}};
    const bool isDone =
        head->isText ? movePlyLines(bytes, *head, result) : movePlyNumbers(bytes, *head, result);
    return isDone && result.origin != Place{} ? std::optional(result) : std::nullopt;
}

std::optional<NearModel> nearCollada(const std::string & text) {
    pugi::xml_document document;
    if (!document.load_buffer(text.data(), text.size(), pugi::parse_full & ~pugi::parse_doctype))
        return std::nullopt;
    auto origin = bringNear(outermost(document), [](const pugi::xml_node & node, const auto & numbers) {
        const auto place = placeIn(node, numbers);
        return place ? std::vector{*place} : std::vector<std::array<unsigned, 3>>();
    });
    if (!origin)
        origin = bringNear(positions(document), [](const pugi::xml_node &, const auto & numbers) {
            std::vector<std::array<unsigned, 3>> places;
            for (unsigned i = 0; numbers.size() % 3 == 0 && i < numbers.size(); i += 3)
                places.push_back({i, i + 1, i + 2});
            return places;
        });
    if (!origin) return std::nullopt;
    std::ostringstream stream;
    document.save(stream, "", pugi::format_raw);
    return NearModel{stream.str(), *origin};
}

} // namespace NBX
