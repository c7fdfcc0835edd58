#pragma once

#include <cstdint>
#include <optional>

#include "checkedfile.h"
#include "core/terrain/texture/streaming/streamingtextureformat.h"

namespace ZMT::UTIL {

/// What a streaming texture has, as far as it is sound.
struct CheckedTexture {
    std::uint64_t tiles = 0, levels = 0;
    std::optional<CORE::StreamingTextureFormat::TileHeader> root;
};

/// Checks the streaming texture that takes the file from `base` to its end.
CheckedTexture checkTexture(CheckedFile & file, std::uint64_t base, std::uint64_t key);

} // namespace ZMT::UTIL
