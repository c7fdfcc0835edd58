#include "gltfplaces.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

namespace NBX {

namespace {

using Json = nlohmann::json;
using Matrix = std::array<double, 16>;

constexpr Matrix s_unit = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

/// The text in a binary file; all of any other one.
std::string textIn(const std::string & bytes) {
    constexpr std::size_t head = 20; // magic, version, length; length of the first part, its kind
    if (bytes.size() < head || bytes.compare(0, 4, "glTF") != 0) return bytes;
    std::uint32_t length = 0;
    std::memcpy(&length, bytes.data() + 12, sizeof length);
    if (bytes.compare(16, 4, "JSON") != 0) return {};
    return bytes.substr(head, length);
}

const Json * memberOf(const Json * object, const char * name) {
    if (!object || !object->is_object()) return nullptr;
    const auto found = object->find(name);
    return found == object->end() ? nullptr : &*found;
}

const Json * elementOf(const Json * list, const Json * number) {
    if (!list || !list->is_array() || !number || !number->is_number_unsigned()) return nullptr;
    const auto i = number->get<std::uint64_t>();
    return i < list->size() ? &(*list)[std::size_t(i)] : nullptr;
}

/// As many numbers as `usual` has, which stand in for missing ones.
template <std::size_t N>
std::array<double, N> numbersOf(const Json * object, const char * name, std::array<double, N> usual) {
    const Json * list = memberOf(object, name);
    if (!list || !list->is_array() || list->size() != N) return usual;
    for (std::size_t i = 0; i < N; ++i)
        if (!(*list)[i].is_number()) return usual;
    for (std::size_t i = 0; i < N; ++i)
        usual[i] = (*list)[i].get<double>();
    return usual;
}

/// Translation, rotation by a quaternion and scale, as glTF 2.0, 3.6.
Matrix composed(const std::array<double, 3> & t, const std::array<double, 4> & q,
                const std::array<double, 3> & s) {
    const auto & [x, y, z, w] = q;
    return {(1 - 2 * (y * y + z * z)) * s[0],
            2 * (x * y - z * w) * s[1],
            2 * (x * z + y * w) * s[2],
            t[0],
            2 * (x * y + z * w) * s[0],
            (1 - 2 * (x * x + z * z)) * s[1],
            2 * (y * z - x * w) * s[2],
            t[1],
            2 * (x * z - y * w) * s[0],
            2 * (y * z + x * w) * s[1],
            (1 - 2 * (x * x + y * y)) * s[2],
            t[2],
            0,
            0,
            0,
            1};
}

} // namespace

GltfPlaces::GltfPlaces(const std::string & bytes)
    : document_(std::make_unique<const Json>(Json::parse(textIn(bytes), nullptr, false))) {}

GltfPlaces::~GltfPlaces() = default;

GltfPlaces::Node GltfPlaces::root() const {
    Node root;
    const Json * scenes = memberOf(document_.get(), "scenes");
    const Json * number = memberOf(document_.get(), "scene");
    const Json first = 0U;
    root.nodes = memberOf(document_.get(), "nodes");
    root.outermost = memberOf(elementOf(scenes, number ? number : &first), "nodes");
    if (root.outermost && (!root.outermost->is_array() || root.outermost->empty())) root.outermost = nullptr;
    return root.outermost && root.outermost->size() == 1 ? root.child(0) : root;
}

std::size_t GltfPlaces::Node::children() const {
    const Json * list = outermost ? outermost : memberOf(node, "children");
    return list && list->is_array() ? list->size() : 0;
}

GltfPlaces::Node GltfPlaces::Node::child(std::size_t i) const {
    const Json * list = outermost ? outermost : memberOf(node, "children");
    Node result;
    result.nodes = nodes;
    result.node = i < children() ? elementOf(nodes, &(*list)[i]) : nullptr;
    return result;
}

Matrix GltfPlaces::Node::matrix() const {
    if (!memberOf(node, "matrix"))
        return composed(numbersOf<3>(node, "translation", {0, 0, 0}),
                        numbersOf<4>(node, "rotation", {0, 0, 0, 1}), numbersOf<3>(node, "scale", {1, 1, 1}));
    const Matrix columns = numbersOf<16>(node, "matrix", s_unit);
    Matrix rows;
    for (std::size_t i = 0; i < rows.size(); ++i)
        rows[i] = columns[4 * (i % 4) + i / 4];
    return rows;
}

} // namespace NBX
