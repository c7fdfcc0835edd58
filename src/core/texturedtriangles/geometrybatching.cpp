// Both walks are in the order of the children and keep their own stack, since a tree of identical centres is
// as deep as it likes. A batch is merged attribute by attribute into buffers that were made in their full
// size.

#include "geometrybatching.h"

#include <algorithm>
#include <cstring>

#include <nbx/gl/mesh/vertexattributebufferobjectgl.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

namespace {

using NBX::SO;
using Node = RenderTree::NodePointer;
using Data = NBX::MappedVertexAttributeDataGL;
using Buffer = Data::Buffer;
using Meshes = std::vector<SO<NBX::MappedVertexAttributeShapeGL>>;

constexpr unsigned s_float = NBX::VertexAttributeTraitsGL<float>::componentType;
constexpr unsigned s_byte = NBX::VertexAttributeTraitsGL<unsigned char>::componentType;

unsigned verticesOf(const NBX::MappedVertexAttributeShapeGL * mesh) {
    return mesh && mesh->data() ? mesh->data()->vertices() : 0;
}

/// Post-order: an inner node comes again behind its children.
void countVertices(RenderTree & tree) {
    struct Visit {
        Node node;
        bool childrenAreCounted;
    };
    std::vector<Visit> stack{{tree.root(), false}};
    while (!stack.empty()) {
        const Visit visit = stack.back();
        stack.pop_back();
        RenderNode & content = visit.node->content;
        const bool isInner = tree.hasChildren(visit.node);
        if (isInner && !visit.childrenAreCounted) {
            stack.push_back({visit.node, true});
            for (unsigned i = 0; i < RenderTree::s_childrenOfNode; ++i)
                stack.push_back({tree.child(visit.node, i), false});
            continue;
        }
        if (content.triangles) content.triangles = content.triangles->withoutIndices();
        content.numVertices = int(verticesOf(content.triangles.get()));
        for (unsigned i = 0; isInner && i < RenderTree::s_childrenOfNode; ++i)
            content.numVertices += tree.child(visit.node, i)->content.numVertices;
    }
}

/// The first and all others of the same kind; none for a kind that is not merged.
struct Kind {
    unsigned componentType = 0, components = 0;
};

/// What the attribute is in all meshes that have it. False where they do not fit together.
bool findKind(const Meshes & meshes, const NBX::ID & name, Kind & kind) {
    for (const auto & mesh : meshes) {
        const SO<Buffer> buffer = mesh->data()->buffer(name);
        if (!buffer) continue;
        if (kind.components == 0) kind = {buffer->componentType(), buffer->components()};
        if (kind.components != buffer->components()) {
            NBX_FAILURE(L"all buffers must have equal number of components");
            return false;
        }
        if (kind.componentType != buffer->componentType()) {
            NBX_FAILURE(L"all buffers must have equal component types");
            return false;
        }
    }
    return kind.componentType == s_float || kind.componentType == s_byte;
}

void fillWhite(Buffer & buffer) {
    if (buffer.componentType() == s_byte) {
        std::memset(buffer.mapPointer(), UINT8_MAX, buffer.bytes());
    } else {
        auto * first = static_cast<float *>(buffer.mapPointer());
        std::fill_n(first, std::size_t(buffer.count()) * buffer.components(), 1.0F);
    }
}

/// The attribute of all meshes in one buffer; null where that cannot be.
SO<Buffer> merged(const Meshes & meshes, const NBX::ID & name, unsigned vertices) {
    Kind kind;
    if (!findKind(meshes, name, kind)) return nullptr;
    const SO<Buffer> result(new Buffer(kind.componentType, kind.components, vertices));
    if (name == Data::COLOR_ID) fillWhite(*result);
    auto * target = static_cast<std::uint8_t *>(result->mapPointer());
    for (const auto & mesh : meshes) {
        const SO<Buffer> buffer = mesh->data()->buffer(name);
        const unsigned count = verticesOf(mesh.get());
        if (buffer && buffer->count() != count) return nullptr;
        if (buffer && count > 0) std::memcpy(target, buffer->data(), buffer->bytes());
        target += std::size_t(count) * result->elementBytes();
    }
    result->unmapPointer();
    return result;
}

/// Null without positions.
SO<Data> merged(const Meshes & meshes, unsigned vertices) {
    std::vector<NBX::ID> names;
    for (const auto & mesh : meshes)
        for (const NBX::ID & name : mesh->data()->names())
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    const SO<Data> data(new Data(NBX::BufferObjectGL::UP_Static));
    for (const NBX::ID & name : names)
        if (const SO<Buffer> buffer = merged(meshes, name, vertices)) data->setBuffer(name, buffer);
    return data->buffer(Data::VERTEX_ID) ? data : nullptr;
}

void batch(RenderTree & tree, const Node & root) {
    Meshes meshes;
    unsigned next = 0;
    std::vector<Node> stack{root};
    while (!stack.empty()) {
        const Node node = stack.back();
        stack.pop_back();
        RenderNode & content = node->content;
        content.vertexRangeStart = int(next);
        content.vertexData = nullptr;
        if (content.triangles && content.triangles->data()) meshes.push_back(content.triangles);
        next += verticesOf(content.triangles.get());
        for (unsigned i = RenderTree::s_childrenOfNode; tree.hasChildren(node) && i-- > 0;)
            stack.push_back(tree.child(node, i));
    }
    if (next > 0) root->content.vertexData = merged(meshes, next);
}

} // namespace

void batchGeometry(RenderTree & tree) {
    countVertices(tree);
    std::vector<Node> stack{tree.root()};
    while (!stack.empty()) {
        const Node node = stack.back();
        stack.pop_back();
        if (!tree.hasChildren(node) || node->content.numVertices <= s_maxBatchVertices) {
            batch(tree, node);
            continue;
        }
        node->content.vertexData = nullptr;
        node->content.vertexRangeStart = -1;
        for (unsigned i = RenderTree::s_childrenOfNode; i-- > 0;)
            stack.push_back(tree.child(node, i));
    }
}

} // namespace ZMT::CORE
