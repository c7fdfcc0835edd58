// Outside the interpolator's box a constant weight decides, so that textures of weight 0 are neither refined
// nor asked for. `request` finds out which of the three are wanted, asks for these, and chooses the engine's
// effect by what came.

#include <zmt/core/terrain/texture/interpolatedterraintexturingeffect.h>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/effect/additivemultitexturingeffectgl.h>
#include <nbx/gl/effect/interpolatedmultitexturingeffectgl.h>
#include <nbx/gl/effect/modulatemultitexturingeffectgl.h>
#include <nbx/object/serializationmanager.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>

namespace ZMT::CORE {

namespace {

using EngineTextures = NBX::Array<NBX::SO<NBX::TextureGL>>;
using EngineEffect = NBX::SO<NBX::TexturingEffectGL>;

EngineEffect modulateWith(const NBX::SO<NBX::TextureGL> & texture) {
    NBX::SO<EngineTextures> textures(new EngineTextures);
    textures->append(texture);
    return new NBX::ModulateMultiTexturingEffectGL(textures.get(), nullptr, false);
}

/// Both textures at constant weights. Without `first`, the picture so far stands in for it.
EngineEffect mix(const NBX::SO<NBX::TextureGL> & first, const NBX::SO<NBX::TextureGL> & second,
                 double weight) {
    NBX::SO<EngineTextures> textures(new EngineTextures);
    NBX::SO<NBX::Array<double>> weights(new NBX::Array<double>);
    if (first) {
        textures->append(first);
        weights->append(1.0 - weight);
    }
    textures->append(second);
    weights->append(weight);
    return new NBX::AdditiveMultiTexturingEffectGL(textures.get(), weights.get(), nullptr,
                                                   first ? 0.0 : 1.0 - weight, false);
}

} // namespace

InterpolatedTerrainTexturingEffect::InterpolatedTerrainTexturingEffect() = default;

InterpolatedTerrainTexturingEffect::InterpolatedTerrainTexturingEffect(TerrainTexture * interpolator,
                                                                       TerrainTexture * texture1,
                                                                       TerrainTexture * texture2,
                                                                       double outsideWeight)
    : interpolator_(interpolator), textures_{texture1, texture2}, outsideWeight_(outsideWeight) {
    NBX_CHECK(interpolator, L"no interpolator");
    NBX_CHECK(texture2, L"no texture #2");
}

void InterpolatedTerrainTexturingEffect::setInterpolator(TerrainTexture * interpolator) {
    if (interpolator_ == interpolator) return;
    NBX_CHECK(interpolator, L"no interpolator");
    interpolator_ = interpolator;
    modified();
}

NBX::SO<TerrainTexture> InterpolatedTerrainTexturingEffect::getTexture(unsigned i) const {
    NBX_CHECK(i < 2, L"i out of range");
    return i < 2 ? textures_[i] : nullptr;
}

void InterpolatedTerrainTexturingEffect::setTexture(unsigned i, TerrainTexture * texture) {
    NBX_CHECK(i < 2, L"i out of range");
    if (i >= 2 || textures_[i] == texture) return;
    textures_[i] = texture;
    modified();
}

void InterpolatedTerrainTexturingEffect::setOutsideWeight(double weight) {
    if (outsideWeight_ == weight) return;
    outsideWeight_ = weight;
    modified();
}

bool InterpolatedTerrainTexturingEffect::isOutside(const GeometryPatch * patch) const {
    if (!interpolator_ || !patch) return false;
    const NBX::Bounds box = interpolator_->boundingBox();
    return box.isDefined() && !box.intersects(patch->boundingBox());
}

bool InterpolatedTerrainTexturingEffect::refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo,
                                                unsigned viewportWidth, unsigned viewportHeight,
                                                const NBX::Vector3Base<double> & eye, double textureError,
                                                bool inMotion) const {
    NBX_CHECK(patch, L"no geometry patch");
    const bool outside = isOutside(patch);
    const bool useSecond = !outside || outsideWeight_ > 0.0;
    const bool useFirst = !outside || outsideWeight_ < 1.0;
    const auto refines = [&](const TerrainTexture & texture) {
        return texture.refine(patch, viewInfo, viewportWidth, viewportHeight, eye, textureError, inMotion);
    };
    if (!outside && interpolator_ && refines(*interpolator_)) return true;
    if (useSecond) {
        NBX_CHECK(textures_[1], L"no texture #2");
        if (textures_[1] && refines(*textures_[1])) return true;
    }
    if (useFirst && textures_[0]) {
        NBX_CHECK(textures_[0], L"no texture #1");
        return refines(*textures_[0]);
    }
    return false;
}

bool InterpolatedTerrainTexturingEffect::ignorePreviousEffects(const GeometryPatch * patch,
                                                               const NBX::ViewInfo *, unsigned, unsigned,
                                                               const NBX::Vector3Base<double> &, double,
                                                               bool) const {
    return textures_[0] || (outsideWeight_ >= 1.0 && isOutside(patch));
}

NBX::SO<NBX::TexturingEffectGL> InterpolatedTerrainTexturingEffect::request(
    const GeometryPatch * patch, NBX::EngineGL * engine, const NBX::ViewInfo * viewInfo,
    unsigned viewportWidth, unsigned viewportHeight, double priority, const NBX::Vector3Base<double> & eye,
    double textureError, bool inMotion, bool asynchronous, bool & incomplete) const {
    NBX_CHECK(patch, L"no geometry patch");
    bool useInterpolator = true, useFirst = true, useSecond = true;
    if (isOutside(patch)) {
        // Without texture #1 the interpolator is asked even outside its box, and texture #2 stays.
        useInterpolator = !textures_[0];
        if (outsideWeight_ >= 1.0)
            useFirst = false;
        else if (outsideWeight_ <= 0.0 && textures_[0])
            useSecond = false;
    }
    if (useSecond) NBX_CHECK(textures_[1], L"no texture #2");
    const auto requested = [&](bool wanted,
                               const NBX::SO<TerrainTexture> & texture) -> NBX::SO<NBX::TextureGL> {
        if (!wanted || !texture) return nullptr;
        return texture->request(patch, engine, viewInfo, viewportWidth, viewportHeight, priority, eye,
                                textureError, inMotion, asynchronous, incomplete);
    };
    const auto interpolator = requested(useInterpolator, interpolator_);
    const auto tex1 = requested(useFirst, textures_[0]);
    const auto tex2 = requested(useSecond, textures_[1]);

    // Without anything to lead over to, the first texture shows alone.
    if (interpolator && !tex2) return tex1 ? modulateWith(tex1) : nullptr;
    if (interpolator)
        return new NBX::InterpolatedMultiTexturingEffectGL(interpolator.get(), tex1.get(), tex2.get(),
                                                           nullptr, nullptr, nullptr, false);
    if (!useFirst) {
        NBX_CHECK(tex2, L"no texture #2");
        return tex2 ? modulateWith(tex2) : nullptr;
    }
    if (useSecond && tex2) return mix(tex1, tex2, outsideWeight_);
    return tex1 ? modulateWith(tex1) : nullptr;
}

void InterpolatedTerrainTexturingEffect::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    TerrainTexturingEffect::acceptChildren(children);
    children.push_back(interpolator_.get());
    for (const auto & texture : textures_)
        children.push_back(texture.get());
}

void InterpolatedTerrainTexturingEffect::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TerrainTexturingEffect>(m, this);
    m.attribute("interpolator", interpolator_);
    m.attribute("textures_0", textures_[0]);
    m.attribute("textures_1", textures_[1]);
    m.attribute("outsideWeight", outsideWeight_);
}

NBX_STORED_CLASS_IMPL(InterpolatedTerrainTexturingEffect, TerrainTexturingEffect)

} // namespace ZMT::CORE
