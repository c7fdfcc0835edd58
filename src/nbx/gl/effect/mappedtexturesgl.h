#pragma once

#include <vector>

#include <nbx/container/sequence/iterator.h>
#include <nbx/gl/effect/passessetup.h>

namespace NBX {

/// The textures that are not null, with their number in `textures` and their generators. Null sequences are
/// as empty ones.
struct NumberedTextureGL {
    unsigned number;
    MappedTextureGL texture;
};

inline std::vector<NumberedTextureGL> mappedTextures(const Iterator<SO<TextureGL>> * textures,
                                                     const Iterator<SO<TexGenGL>> * texGens) {
    std::vector<NumberedTextureGL> result;
    for (unsigned i = 0; textures && i < textures->size(); ++i) {
        const SO<TextureGL> texture = textures->get(i);
        const SO<TexGenGL> texGen = texGens && i < texGens->size() ? texGens->get(i) : SO<TexGenGL>();
        if (texture) result.push_back({i, {texture, texGen}});
    }
    return result;
}

} // namespace NBX
