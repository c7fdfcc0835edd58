#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <unistd.h>

#include <nbx/container/sequence/array.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/misc/jpgdecompressorthread.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "core/texturedtriangles/geometrybatching.h"

/// A full quadtree of squares in the plane of x and y, from 0 to 4. Leaves suffice from a distance of 100 on,
/// each level above from twice that of the one below. Textures that are put into nodes live as long as the
/// object.
class SmallTree {
public:
    using Tree = ZMT::CORE::TexturedTriangleTree;
    using RenderTree = ZMT::CORE::RenderTree;
    using Node = RenderTree::NodePointer;
    using StreamTexture = ZMT::CORE::TTTMemoryController::StreamTexture;
    using Mesh = NBX::MappedVertexAttributeShapeGL;
    using V = NBX::Vector3Base<double>;
    static constexpr double size = 4.0;
    static constexpr double leafDistance = 100.0;
    static constexpr int atlasSize = 16;

    /// With the root atlas of one layer in `color`. Each leaf has `squares` squares above each other.
    explicit SmallTree(unsigned depth, const NBX::Color & color = NBX::Color::red, unsigned squares = 1)
        : depth_(depth), squares_(squares) {
        nodes = new RenderTree({0.0, 0.0}, {size, size}, {0U, 1U});
        grow(nodes->root(), 0, 0.0, 0.0);
        tree = new Tree();
        ZMT::CORE::batchGeometry(*nodes);
        tree->setAtlasSize(atlasSize);
        tree->setRenderTree(nodes);
        tree->registerTextureLayer(0, pagingFile(), texture(color), Tree::TextureFormatRGBA8);
    }
    ~SmallTree() {
        tree = nullptr;
        std::filesystem::remove(path_);
    }
    SmallTree(const SmallTree &) = delete;
    SmallTree & operator=(const SmallTree &) = delete;

    /// A file of its own, at first of one byte.
    std::wstring pagingFile() {
        if (path_.empty()) {
            static unsigned number = 0;
            path_ = testing::TempDir() + "zmt_smalltree_" + std::to_string(::getpid()) + "_" +
                    std::to_string(number++);
            std::ofstream(path_) << 'x';
        }
        return NBX::StringUtils::Utf8String2WString(path_);
    }
    /// Atlases of a colour for each level below the root, and source textures of `originals`.
    void writePagingFile(const std::vector<NBX::Color> & levels, const NBX::Color & originals,
                         Tree::TextureFormat format = Tree::TextureFormatRGBA8) {
        tree->registerTextureLayer(0, pagingFile(), tree->getRootAtlas(0), format);
        std::ofstream file(NBX::StringUtils::WString2Utf8String(pagingFile()), std::ios::binary);
        std::uint64_t place = 0;
        const auto write = [&](const NBX::Color & color, bool hasHeader) {
            const auto texture = this->texture(color);
            held.pop_back();
            const auto block = format == Tree::TextureFormatJPEG
                                   ? ZMT::CORE::JPGDecompressorThread::buildJPGMipmaps(
                                         image([&](int, int) { return color; }))
                                   : texture->data();
            const std::uint32_t header[2] = {atlasSize, atlasSize};
            if (hasHeader) file.write(reinterpret_cast<const char *>(header), sizeof header);
            file.write(static_cast<const char *>(block->pointer()), block->size());
            const std::uint64_t bytes = block->size() + (hasHeader ? sizeof header : 0);
            place += bytes;
            return std::pair<std::uint64_t, std::uint64_t>(place - bytes, bytes);
        };
        for (unsigned level = 1; level <= depth_; ++level)
            forLevel(level, [&](const Node & node) {
                const auto [position, bytes] = write(levels[level - 1], false);
                node->content.blockPositions = {position};
                node->content.blockSizes = {bytes};
            });
        forLevel(depth_, [&](const Node & node) {
            const auto [position, bytes] = write(originals, true);
            node->content.originalTexturesBlockPositions = {position};
            node->content.originalTexturesBlockSizes = {bytes};
        });
    }

    static NBX::SO<NBX::Image> image(const std::function<NBX::Color(int x, int y)> & color) {
        const NBX::SO<NBX::Image> image(new NBX::MemoryImage(atlasSize, atlasSize, NBX::LS_RGBA));
        for (int y = 0; y < atlasSize; ++y)
            for (int x = 0; x < atlasSize; ++x)
                image->setColor(x, y, color(x, y));
        return image;
    }
    NBX::SO<StreamTexture> texture(const NBX::Color & color) {
        return texture(image([&](int, int) { return color; }));
    }
    NBX::SO<StreamTexture> texture(const NBX::SO<NBX::Image> & image,
                                   Tree::TextureFormat format = Tree::TextureFormatRGBA8) {
        held.emplace_back(new StreamTexture(image, format));
        return held.back();
    }
    void load(const Node & node, const NBX::SO<StreamTexture> & atlas, unsigned layer = 0) {
        if (node->content.textures.size() <= layer) node->content.textures.resize(layer + 1);
        node->content.textures[layer] = NBX::WO<NBX::SharedObj>(atlas);
    }
    void loadOriginals(const Node & node, const NBX::Color & color) {
        node->content.originalTextures->set(0, texture(color));
        node->content.textureStates = {true};
    }
    void forLevel(unsigned level, const std::function<void(const Node &)> & visit) {
        forLevel(nodes->root(), level, visit);
    }
    /// The nodes of one level show a colour of their own.
    void loadLevel(unsigned level, const NBX::Color & color) {
        forLevel(level, [&](const Node & node) { load(node, texture(color)); });
    }
    void loadAllOriginals(const NBX::Color & color) {
        forLevel(depth_, [&](const Node & node) { loadOriginals(node, color); });
    }
    Node node(const std::vector<unsigned> & path) const {
        Node at = nodes->root();
        for (const unsigned digit : path)
            at = nodes->child(at, digit);
        return at;
    }

    NBX::SO<Tree> tree;
    NBX::SO<RenderTree> nodes;
    std::vector<NBX::SO<StreamTexture>> held;

private:
    void grow(const Node & node, unsigned level, double x, double y) {
        ZMT::CORE::RenderNode & content = node->content;
        const double side = size / double(1U << level);
        content.bounds = NBX::Bounds(V(x, y, 0), V(x + side, y + side, 0));
        content.minDistance = leafDistance * double(1U << (depth_ - level));
        content.textureScaleFactor = 1.0 / double(1U << (depth_ - level));
        if (level == depth_) {
            fillLeaf(content, x, y, side);
            return;
        }
        nodes->createChildren(node);
        for (unsigned i = 0; i < 4; ++i)
            grow(nodes->child(node, i), level + 1, x + (i & 1) * side / 2, y + (i >> 1) * side / 2);
    }

    /// Coordinates of leaves go on from one to the next, those of source textures are the same in all.
    void fillLeaf(ZMT::CORE::RenderNode & content, double x, double y, double side) const {
        std::vector<V> vertices, treeCoordinates, coordinates;
        for (unsigned s = 0; s < squares_; ++s)
            for (const unsigned corner : {0U, 1U, 3U, 0U, 3U, 2U}) {
                const double u = corner & 1, v = corner >> 1;
                vertices.emplace_back(x + u * side, y + v * side, 0.0);
                treeCoordinates.emplace_back(x / side + u, y / side + v, 0.0);
                coordinates.emplace_back(u, v, 0.0);
            }
        const NBX::SO<NBX::PolygonSet> set(
            new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new NBX::Array<V>(vertices)));
        set->setTextureIterator(new NBX::Array<V>(treeCoordinates));
        content.triangles = new Mesh(set.get(), NBX::BufferObjectGL::UP_Static);
        set->setTextureIterator(new NBX::Array<V>(coordinates));
        set->setTextureIterator(new NBX::Array<V>(treeCoordinates), 1);
        content.originalGeometry = {new Mesh(set.get(), NBX::BufferObjectGL::UP_Static)};
        content.originalTextures = new ZMT::CORE::RenderNode::Textures(1);
        content.originalTexturesBlockPositions = {0};
        content.originalTexturesBlockSizes = {0};
        content.textureStates = {false};
    }

    void forLevel(const Node & node, unsigned level, const std::function<void(const Node &)> & visit) {
        if (level == 0) {
            visit(node);
            return;
        }
        for (unsigned i = 0; i < 4; ++i)
            forLevel(nodes->child(node, i), level - 1, visit);
    }

    unsigned depth_, squares_;
    std::string path_;
};
