#include "texturelist.h"

namespace ZMT::CORE {

bool TextureList::anyRefines(const Textures * textures,
                             const std::function<bool(const TerrainTexture &)> & refines) {
    for (unsigned i = 0; textures && i < textures->size(); ++i) {
        const NBX::SO<TerrainTexture> texture = textures->get(i);
        if (texture && refines(*texture)) return true;
    }
    return false;
}

NBX::SO<TextureList::EngineTextures>
TextureList::requestAll(const Textures * textures,
                        const std::function<NBX::SO<NBX::TextureGL>(const TerrainTexture &)> & requests) {
    NBX::SO<EngineTextures> result(new EngineTextures);
    for (unsigned i = 0; textures && i < textures->size(); ++i) {
        const NBX::SO<TerrainTexture> texture = textures->get(i);
        const NBX::SO<NBX::TextureGL> answer = texture ? requests(*texture) : nullptr;
        if (answer) result->append(answer);
    }
    return result->isEmpty() ? nullptr : result;
}

void TextureList::acceptChildren(const Textures * textures, std::vector<NBX::Visitable *> & children) {
    for (unsigned i = 0; textures && i < textures->size(); ++i) {
        const NBX::SO<TerrainTexture> texture = textures->get(i);
        const bool isHeldElsewhere = !texture || texture->references() > 1;
        if (isHeldElsewhere) children.push_back(texture.get());
    }
}

} // namespace ZMT::CORE
