#include <zmt/core/terrain/texture/additiveterraintexturingeffect.h>

#include "texturelist.h"
#include <nbx/container/sequence/array.h>
#include <nbx/gl/effect/additivemultitexturingeffectgl.h>
#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

AdditiveTerrainTexturingEffect::AdditiveTerrainTexturingEffect(Textures * textures, Weights * weights,
                                                               double previousEffectWeight)
    : textures_(textures), weights_(weights), previousEffectWeight_(previousEffectWeight) {}

void AdditiveTerrainTexturingEffect::setTextures(Textures * textures) {
    if (textures_ == textures) return;
    textures_ = textures;
    modified();
}

void AdditiveTerrainTexturingEffect::setWeights(Weights * weights) {
    if (weights_ == weights) return;
    weights_ = weights;
    modified();
}

void AdditiveTerrainTexturingEffect::setPreviousEffectWeight(double weight) {
    if (previousEffectWeight_ == weight) return;
    previousEffectWeight_ = weight;
    modified();
}

bool AdditiveTerrainTexturingEffect::takesPart(unsigned i) const {
    return !hasWeight(i) || weights_->get(i) > 0.0;
}

bool AdditiveTerrainTexturingEffect::refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo,
                                            unsigned viewportWidth, unsigned viewportHeight,
                                            const NBX::Vector3Base<double> & eye, double textureError,
                                            bool inMotion) const {
    for (unsigned i = 0; textures_ && i < textures_->size(); ++i) {
        if (!takesPart(i)) continue;
        const NBX::SO<TerrainTexture> texture = textures_->get(i);
        if (texture &&
            texture->refine(patch, viewInfo, viewportWidth, viewportHeight, eye, textureError, inMotion))
            return true;
    }
    return false;
}

bool AdditiveTerrainTexturingEffect::ignorePreviousEffects(const GeometryPatch *, const NBX::ViewInfo *,
                                                           unsigned, unsigned,
                                                           const NBX::Vector3Base<double> &, double,
                                                           bool) const {
    return previousEffectWeight_ <= 0.0;
}

NBX::SO<NBX::TexturingEffectGL> AdditiveTerrainTexturingEffect::request(
    const GeometryPatch * patch, NBX::EngineGL * engine, const NBX::ViewInfo * viewInfo,
    unsigned viewportWidth, unsigned viewportHeight, double priority, const NBX::Vector3Base<double> & eye,
    double textureError, bool inMotion, bool asynchronous, bool & incomplete) const {
    if (!textures_ || textures_->isEmpty()) return nullptr;
    NBX::SO<NBX::Array<NBX::SO<NBX::TextureGL>>> textures(new NBX::Array<NBX::SO<NBX::TextureGL>>);
    NBX::SO<NBX::Array<double>> weights(new NBX::Array<double>);
    for (unsigned i = 0; i < textures_->size(); ++i) {
        if (!takesPart(i)) continue;
        const NBX::SO<TerrainTexture> texture = textures_->get(i);
        if (!texture) continue;
        const NBX::SO<NBX::TextureGL> answer =
            texture->request(patch, engine, viewInfo, viewportWidth, viewportHeight, priority, eye,
                             textureError, inMotion, asynchronous, incomplete);
        if (!answer) continue;
        textures->append(answer);
        if (hasWeight(i)) weights->append(weights_->get(i));
    }
    if (textures->isEmpty()) return nullptr;
    return new NBX::AdditiveMultiTexturingEffectGL(textures.get(), weights.get(), nullptr,
                                                   previousEffectWeight_, false);
}

void AdditiveTerrainTexturingEffect::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    TerrainTexturingEffect::acceptChildren(children);
    TextureList::acceptChildren(textures_.get(), children);
}

void AdditiveTerrainTexturingEffect::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TerrainTexturingEffect>(m, this);
    NBX::attributeWithDefault(m, "textures", textures_, nullptr);
    NBX::attributeWithDefault(m, "weights", weights_, nullptr);
    NBX::attributeWithDefault(m, "previousWeight", previousEffectWeight_, 0.0);
}

NBX_STORED_CLASS_IMPL(AdditiveTerrainTexturingEffect, TerrainTexturingEffect)

} // namespace ZMT::CORE
