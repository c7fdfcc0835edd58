// One list of fields serves both directions: `Writer` appends each field to the bytes, `Reader` takes it from
// them, and every container asks before it grows whether the bytes that are left could fill it.

#include "modelanswer.h"

#include <cmath>
#include <cstring>
#include <type_traits>

namespace NBX {

namespace {

constexpr char s_magic[8] = {'Z', 'M', 'T', 'M', 'O', 'D', 'L', '2'};
/// Nodes below nodes, beyond which a walk through them could exhaust the stack.
constexpr unsigned s_deepest = 500;

class Writer {
public:
    std::vector<std::uint8_t> bytes;

    bool raw(const void * data, std::size_t count) {
        const auto * from = static_cast<const std::uint8_t *>(data);
        bytes.insert(bytes.end(), from, from + count);
        return true;
    }
    template <class Container> bool size(Container & container, std::size_t) {
        const std::uint64_t count = container.size();
        return raw(&count, sizeof count);
    }
};

class Reader {
public:
    Reader(const std::uint8_t * data, std::size_t bytes) : next_(data), left_(bytes) {}

    bool raw(void * data, std::size_t count) {
        if (count > left_) return false;
        if (count != 0) std::memcpy(data, next_, count);
        next_ += count;
        left_ -= count;
        return true;
    }
    /// `leastBytes` is what one element takes at least.
    template <class Container> bool size(Container & container, std::size_t leastBytes) {
        std::uint64_t count = 0;
        if (!raw(&count, sizeof count) || count > left_ / leastBytes) return false;
        container.resize(static_cast<std::size_t>(count));
        return true;
    }
    bool isAtEnd() const { return left_ == 0; }

private:
    const std::uint8_t * next_;
    std::size_t left_;
};

template <class Stream, class T> bool plain(Stream & stream, T & value) {
    static_assert(std::is_trivially_copyable_v<T>);
    return stream.raw(&value, sizeof value);
}

/// A vector of numbers, or a text.
template <class Stream, class Container> bool numbers(Stream & stream, Container & values) {
    using Value = typename Container::value_type;
    return stream.size(values, sizeof(Value)) && stream.raw(values.data(), values.size() * sizeof(Value));
}

template <class Stream> bool fields(Stream & stream, ModelAnswer::Texture & texture) {
    return numbers(stream, texture.name) && plain(stream, texture.width) && plain(stream, texture.height) &&
           numbers(stream, texture.bytes);
}

template <class Stream> bool fields(Stream & stream, ModelAnswer::Material & material) {
    return numbers(stream, material.name) && plain(stream, material.color) &&
           plain(stream, material.specular) && plain(stream, material.shininess) &&
           numbers(stream, material.texture) && plain(stream, material.embedded) &&
           plain(stream, material.wrapS) && plain(stream, material.wrapT) && plain(stream, material.isOpaque);
}

template <class Stream> bool fields(Stream & stream, ModelAnswer::Mesh & mesh) {
    return numbers(stream, mesh.name) && plain(stream, mesh.material) && numbers(stream, mesh.positions) &&
           numbers(stream, mesh.normals) && numbers(stream, mesh.colors) &&
           numbers(stream, mesh.coordinates) && numbers(stream, mesh.triangles);
}

template <class Stream> bool fields(Stream & stream, ModelAnswer::Node & node) {
    return plain(stream, node.parent) && numbers(stream, node.name) && plain(stream, node.matrix) &&
           numbers(stream, node.meshes) && plain(stream, node.isExact);
}

template <class Stream> bool fields(Stream & stream, std::string & text) {
    return numbers(stream, text);
}

/// The bytes of an element with all its texts and lists empty.
template <class T> std::size_t leastBytes() {
    Writer writer;
    T empty;
    fields(writer, empty);
    return writer.bytes.size();
}

template <class Stream, class T> bool elements(Stream & stream, std::vector<T> & values) {
    // What lies in memory may be larger than what stands in the bytes, but only by a small factor.
    static const std::size_t least = leastBytes<T>();
    if (!stream.size(values, least)) return false;
    for (T & value : values)
        if (!fields(stream, value)) return false;
    return true;
}

template <class Stream> bool fields(Stream & stream, ModelAnswer & answer) {
    return numbers(stream, answer.failure) && plain(stream, answer.up) && plain(stream, answer.unit) &&
           elements(stream, answer.textures) && elements(stream, answer.materials) &&
           elements(stream, answer.meshes) && elements(stream, answer.nodes) &&
           elements(stream, answer.leftOut);
}

bool isSound(const ModelAnswer::Texture & texture) {
    const std::uint64_t pixels = std::uint64_t{texture.width} * texture.height;
    return (texture.width == 0 && texture.height == 0) ||
           (pixels != 0 && pixels <= texture.bytes.size() && pixels * 4 == texture.bytes.size());
}

bool isWrap(std::uint32_t wrap) {
    return wrap == ModelAnswer::W_Repeat || wrap == ModelAnswer::W_ClampToEdge ||
           wrap == ModelAnswer::W_MirroredRepeat;
}

bool isSound(const ModelAnswer::Material & material, std::size_t textures) {
    const bool isInside =
        material.embedded >= -1 && (material.embedded < 0 || std::size_t(material.embedded) < textures);
    return isInside && isWrap(material.wrapS) && isWrap(material.wrapT) && material.isOpaque <= 1;
}

bool isSound(const ModelAnswer::Mesh & mesh, std::size_t materials) {
    const std::size_t vertices = mesh.positions.size() / 3;
    const auto fits = [&](const std::vector<float> & values, std::size_t perVertex) {
        return values.empty() || values.size() == perVertex * vertices;
    };
    if (mesh.material >= materials || mesh.positions.size() % 3 != 0 || mesh.triangles.size() % 3 != 0 ||
        vertices > UINT32_MAX || mesh.triangles.size() > UINT32_MAX || !fits(mesh.normals, 3) ||
        !fits(mesh.colors, 4) || !fits(mesh.coordinates, 2))
        return false;
    for (const std::uint32_t index : mesh.triangles)
        if (index >= vertices) return false;
    return true;
}

bool areSound(const std::vector<ModelAnswer::Node> & nodes, std::size_t meshes) {
    std::vector<unsigned> depths(nodes.size());
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const std::int32_t parent = nodes[i].parent;
        if (i == 0 ? parent != -1 : parent < 0 || std::size_t(parent) >= i) return false;
        depths[i] = i == 0 ? 0 : depths[std::size_t(parent)] + 1;
        if (depths[i] > s_deepest || nodes[i].isExact > 1) return false;
        for (const std::uint32_t mesh : nodes[i].meshes)
            if (mesh >= meshes) return false;
    }
    return true;
}

bool isSound(const ModelAnswer & answer) {
    if (answer.up > ModelAnswer::U_Z || !(answer.unit >= 0.0 && std::isfinite(answer.unit))) return false;
    for (const ModelAnswer::Texture & texture : answer.textures)
        if (!isSound(texture)) return false;
    for (const ModelAnswer::Material & material : answer.materials)
        if (!isSound(material, answer.textures.size())) return false;
    for (const ModelAnswer::Mesh & mesh : answer.meshes)
        if (!isSound(mesh, answer.materials.size())) return false;
    return areSound(answer.nodes, answer.meshes.size());
}

} // namespace

std::vector<std::uint8_t> ModelAnswer::bytes() const {
    Writer writer;
    writer.raw(s_magic, sizeof s_magic);
    fields(writer, const_cast<ModelAnswer &>(*this)); // a writer changes nothing
    return writer.bytes;
}

bool ModelAnswer::read(const std::vector<std::uint8_t> & data, ModelAnswer & answer) {
    if (data.size() < sizeof s_magic || std::memcmp(data.data(), s_magic, sizeof s_magic) != 0) return false;
    answer = {};
    Reader reader(data.data() + sizeof s_magic, data.size() - sizeof s_magic);
    return fields(reader, answer) && reader.isAtEnd() && isSound(answer);
}

} // namespace NBX
