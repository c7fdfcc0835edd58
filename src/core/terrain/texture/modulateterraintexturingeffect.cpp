#include <zmt/core/terrain/texture/modulateterraintexturingeffect.h>

#include <nbx/gl/modulatemultitexturingeffectgl.h>
#include <nbx/object/serializationmanager.h>
#include <zmt/core/terrain/texture/texturelist.h>

namespace ZMT::CORE {

ModulateTerrainTexturingEffect::ModulateTerrainTexturingEffect(Textures * textures) : textures_(textures) {}

void ModulateTerrainTexturingEffect::setTextures(Textures * textures) {
    if (textures_ == textures) return;
    textures_ = textures;
    modified();
}

bool ModulateTerrainTexturingEffect::refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo,
                                            unsigned viewportWidth, unsigned viewportHeight,
                                            const NBX::Vector3Base<double> & eye, double textureError,
                                            bool inMotion) const {
    return TextureList::anyRefines(textures_.get(), [&](const TerrainTexture & texture) {
        return texture.refine(patch, viewInfo, viewportWidth, viewportHeight, eye, textureError, inMotion);
    });
}

bool ModulateTerrainTexturingEffect::ignorePreviousEffects(const GeometryPatch *, const NBX::ViewInfo *,
                                                           unsigned, unsigned,
                                                           const NBX::Vector3Base<double> &, double,
                                                           bool) const {
    return false;
}

NBX::SO<NBX::TexturingEffectGL> ModulateTerrainTexturingEffect::request(
    const GeometryPatch * patch, NBX::EngineGL * engine, const NBX::ViewInfo * viewInfo,
    unsigned viewportWidth, unsigned viewportHeight, double priority, const NBX::Vector3Base<double> & eye,
    double textureError, bool inMotion, bool asynchronous, bool & incomplete) const {
    const auto textures = TextureList::requestAll(textures_.get(), [&](const TerrainTexture & texture) {
        return texture.request(patch, engine, viewInfo, viewportWidth, viewportHeight, priority, eye,
                               textureError, inMotion, asynchronous, incomplete);
    });
    if (!textures) return nullptr;
    return new NBX::ModulateMultiTexturingEffectGL(textures.get(), nullptr, false);
}

void ModulateTerrainTexturingEffect::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    TerrainTexturingEffect::acceptChildren(children);
    TextureList::acceptChildren(textures_.get(), children);
}

void ModulateTerrainTexturingEffect::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TerrainTexturingEffect>(m, this);
    NBX::attributeWithDefault(m, "textures", textures_, nullptr);
}

NBX_STORED_CLASS_IMPL(ModulateTerrainTexturingEffect, TerrainTexturingEffect)

} // namespace ZMT::CORE
