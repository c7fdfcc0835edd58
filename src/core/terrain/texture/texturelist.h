#pragma once

#include <functional>

#include <nbx/container/sequence/array.h>
#include <zmt/core/terrain/texture/terraintexture.h>

namespace ZMT::CORE {

/// What the effects over a sequence of textures have in common.
class TextureList {
public:
    using Textures = NBX::Iterator<NBX::SO<TerrainTexture>>;
    using EngineTextures = NBX::Array<NBX::SO<NBX::TextureGL>>;

    /// True as soon as `refines` is for an entry of `textures` that is not null; `textures` may be null.
    static bool anyRefines(const Textures * textures,
                           const std::function<bool(const TerrainTexture &)> & refines);
    /// The answers of `requests` that are not null; null where there are none.
    static NBX::SO<EngineTextures>
    requestAll(const Textures * textures,
               const std::function<NBX::SO<NBX::TextureGL>(const TerrainTexture &)> & requests);
    /// Appends the entries to the children of a visit. Those that a sequence makes anew for each call are
    /// nobody's children, and left out.
    static void acceptChildren(const Textures * textures, std::vector<NBX::Visitable *> & children);
};

} // namespace ZMT::CORE
