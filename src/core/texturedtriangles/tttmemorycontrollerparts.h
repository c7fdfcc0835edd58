#pragma once

#include <cstdint>
#include <string>

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

#include "core/terrain/geometry/grid/model/blockretry.h"

// What the files of the controller, one for each step of its frame, have in common.

namespace ZMT::CORE {

struct TTTMemoryController::Trouble {
    std::wstring reason;
    GRID::BlockRetry retry;
    double retryTime = 0.0;
    /// Of bytes that are no picture; 0 before there were any.
    std::size_t badBytes = 0;
};

/// Red, green and blue of what JPEG is decoded to.
inline constexpr std::uint64_t s_pictureTexelBytes = 3;

inline TexturedTriangleTree::TextureFormat formatOf(const TTTMemoryController::Block & block) {
    const bool isLayer = block.layer < block.tree->getNumberOfLayers();
    return isLayer ? block.tree->getLayerFormat(block.layer) : TexturedTriangleTree::TextureFormatRGBA8;
}

inline std::uint64_t bytesOf(const NBX::SharedObj * texture) {
    const auto * stream = dynamic_cast<const TTTMemoryController::StreamTexture *>(texture);
    return stream ? stream->memoryBytes() : 0;
}

inline bool isUploaded(const NBX::SO<NBX::SharedObj> & texture) {
    if (const auto stream = NBX::soCast<TTTMemoryController::StreamTexture>(texture))
        return stream->isUploaded();
    const auto image = NBX::soCast<NBX::ImageTexture2DGL>(texture);
    return image && image->name() != 0;
}

inline void setState(const TTTMemoryController::NodeRef & ref) {
    const auto i = static_cast<std::size_t>(ref.textureNumber);
    if (ref.original && i < ref.node->content.textureStates.size()) ref.node->content.textureStates[i] = true;
}

} // namespace ZMT::CORE
