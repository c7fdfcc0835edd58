#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>
#include <zmt/core/misc/jpgdecompressorthread.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

#include "core/terrain/texture/streaming/heldfile.h"

/// A tree without meshes and the bytes of its paging file: a root with four leaves, or with four nodes that
/// have four leaves each. Each node below the root has an atlas of its own colour, and each leaf source
/// textures.
class TestCity {
public:
    using Tree = ZMT::CORE::TexturedTriangleTree;
    using RenderTree = ZMT::CORE::RenderTree;
    using NodePointer = RenderTree::NodePointer;
    using StreamTexture = ZMT::CORE::TTTMemoryController::StreamTexture;
    using Bytes = std::vector<std::uint8_t>;

    struct Options {
        Tree::TextureFormat format = Tree::TextureFormatRGBA8;
        int atlasSize = 16;
        int levels = 1;    ///< below the root
        int originals = 0; ///< of each leaf
        int originalWidth = 8, originalHeight = 8;
        std::wstring name = L"city";
    };

    explicit TestCity(const Options & options) : options_(options) {
        tree = NBX::SO<Tree>(new Tree);
        nodes_ = NBX::SO<RenderTree>(new RenderTree({0.0, 0.0}, {1024.0, 1024.0}, {0U, 2U}));
        fill(nodes_->root(), 0, 0.0, 0.0, 1024.0);
        tree->setAtlasSize(options.atlasSize);
        tree->registerTextureLayer(
            0, options.name,
            new StreamTexture(picture(options.atlasSize, options.atlasSize, 0), Tree::TextureFormatRGBA8),
            options.format);
        tree->setRenderTree(nodes_);
    }

    /// Of one colour with a slow change, so that JPEG has something to do.
    static NBX::SO<NBX::MemoryImage> picture(int width, int height, int number) {
        NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(width, height, NBX::LS_RGB));
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                unsigned char * pixel = image->pixelComponentsU8(x, y);
                pixel[0] = static_cast<unsigned char>(40 * (number % 6) + 8 * x / width);
                pixel[1] = static_cast<unsigned char>(200 - 30 * (number % 5));
                pixel[2] = static_cast<unsigned char>(100 + 8 * y / height);
            }
        return image;
    }

    NodePointer root() const { return nodes_->root(); }
    NodePointer node(unsigned i) const { return nodes_->child(nodes_->root(), i); }
    NodePointer leaf(unsigned i, unsigned k) const { return nodes_->child(node(i), k); }
    /// All below the root, parents first.
    std::vector<NodePointer> all() const {
        std::vector<NodePointer> result;
        for (unsigned i = 0; i < 4; ++i)
            result.push_back(node(i));
        for (unsigned i = 0; options_.levels > 1 && i < 16; ++i)
            result.push_back(leaf(i / 4, i % 4));
        return result;
    }
    NBX::SO<HeldFile> newFile() const { return new HeldFile(paging); }

    NBX::SO<Tree> tree;
    Bytes paging;

private:
    void append(const NBX::DataResource & data) {
        const auto * start = static_cast<const std::uint8_t *>(data.pointer());
        paging.insert(paging.end(), start, start + data.size());
    }
    void appendTexture(int width, int height, int number) {
        const NBX::SO<NBX::Image> image = picture(width, height, number);
        if (options_.format == Tree::TextureFormatJPEG)
            append(*ZMT::CORE::JPGDecompressorThread::buildJPGMipmaps(image));
        else
            append(*NBX::SO<StreamTexture>(new StreamTexture(image, options_.format))->data());
    }
    void appendSide(int side) {
        for (int i = 0; i < 4; ++i)
            paging.push_back(static_cast<std::uint8_t>(side >> (8 * i)));
    }

    void fill(const NodePointer & at, int level, double x, double z, double side) {
        ZMT::CORE::RenderNode & content = at->content;
        content.bounds = NBX::Bounds({x, 0.0, z}, {x + side, 20.0, z + side});
        content.minDistance = 50.0;
        if (level > 0) {
            content.blockPositions = {paging.size()};
            appendTexture(options_.atlasSize, options_.atlasSize, ++textures_);
            content.blockSizes = {paging.size() - content.blockPositions[0]};
        }
        if (level == options_.levels) {
            fillOriginals(content);
            return;
        }
        nodes_->createChildren(at);
        for (unsigned i = 0; i < 4; ++i)
            fill(nodes_->child(at, i), level + 1, x + (i % 2) * side / 2, z + (i / 2) * side / 2, side / 2);
    }
    void fillOriginals(ZMT::CORE::RenderNode & content) {
        content.originalTextures = new ZMT::CORE::RenderNode::Textures(unsigned(options_.originals));
        content.textureStates.resize(std::size_t(options_.originals));
        for (int i = 0; i < options_.originals; ++i) {
            content.originalTexturesBlockPositions.push_back(paging.size());
            appendSide(options_.originalWidth);
            appendSide(options_.originalHeight);
            appendTexture(options_.originalWidth, options_.originalHeight, ++textures_);
            content.originalTexturesBlockSizes.push_back(paging.size() -
                                                         content.originalTexturesBlockPositions.back());
        }
    }

    const Options options_;
    NBX::SO<RenderTree> nodes_;
    int textures_ = 0;
};

/// A controller that opens what the test gives it.
class TestController : public ZMT::CORE::TTTMemoryController {
    NBX_TEMPLATE_CLASS(TestController, ZMT::CORE::TTTMemoryController)
public:
    std::map<std::wstring, NBX::SO<ZMT::CORE::AsyncFile>> files;
    int opened = 0;
    /// Called once, while a file is opened.
    std::function<void()> whileOpening;

protected:
    NBX::SO<ZMT::CORE::AsyncFile> openFile(const std::wstring & name) override {
        ++opened;
        if (const auto happens = std::exchange(whileOpening, nullptr)) happens();
        const auto found = files.find(name);
        return found == files.end() ? nullptr : found->second;
    }
};
