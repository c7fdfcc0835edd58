#include <zmt/core/terrain/texture/texturesequenceeffect.h>

#include "texturelist.h"
#include <nbx/gl/effect/texturingeffectgl.h>
#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

TextureSequenceEffect::TextureSequenceEffect(Textures * textures) : textures_(textures) {}

void TextureSequenceEffect::setTextures(Textures * textures) {
    if (textures_ == textures) return;
    textures_ = textures;
    modified();
}

bool TextureSequenceEffect::refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo,
                                   unsigned viewportWidth, unsigned viewportHeight,
                                   const NBX::Vector3Base<double> & eye, double textureError,
                                   bool inMotion) const {
    return TextureList::anyRefines(textures_.get(), [&](const TerrainTexture & texture) {
        return texture.refine(patch, viewInfo, viewportWidth, viewportHeight, eye, textureError, inMotion);
    });
}

bool TextureSequenceEffect::ignorePreviousEffects(const GeometryPatch *, const NBX::ViewInfo *, unsigned,
                                                  unsigned, const NBX::Vector3Base<double> &, double,
                                                  bool) const {
    return false;
}

NBX::SO<NBX::TexturingEffectGL> TextureSequenceEffect::request(
    const GeometryPatch * patch, NBX::EngineGL * engine, const NBX::ViewInfo * viewInfo,
    unsigned viewportWidth, unsigned viewportHeight, double priority, const NBX::Vector3Base<double> & eye,
    double textureError, bool inMotion, bool asynchronous, bool & incomplete) const {
    const auto textures = TextureList::requestAll(textures_.get(), [&](const TerrainTexture & texture) {
        return texture.request(patch, engine, viewInfo, viewportWidth, viewportHeight, priority, eye,
                               textureError, inMotion, asynchronous, incomplete);
    });
    if (!textures) return nullptr;
    return newEngineEffect(textures.get());
}

void TextureSequenceEffect::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    TerrainTexturingEffect::acceptChildren(children);
    TextureList::acceptChildren(textures_.get(), children);
}

void TextureSequenceEffect::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TerrainTexturingEffect>(m, this);
    NBX::attributeWithDefault(m, "textures", textures_, nullptr);
}

NBX_CLASS_IMPL(TextureSequenceEffect, TerrainTexturingEffect)

} // namespace ZMT::CORE
