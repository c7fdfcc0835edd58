#pragma once

#include <nbx/gl/effect/texturingeffectgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/object/so.h>

namespace NBX {

/// Goes from a first texture, or the picture, to a second one by a factor per pixel:
/// (1 - factor) * first + factor * second, with the textures multiplied by the lit colour of the shape. The
/// factor is the interpolator's alpha where it has one, else its luminance.
class InterpolatedMultiTexturingEffectGL : public TexturingEffectGL {
    NBX_CLASS(InterpolatedMultiTexturingEffectGL, TexturingEffectGL)
public:
    /// With `first` null the picture stands in for it. Null interpolators and second textures are reported
    /// under their names with "no interpolator" and "no second texture"; without either the effect does
    /// nothing. The generators may be null: the engine's current one then holds. `disabled`: the effect
    /// starts switched off.
    InterpolatedMultiTexturingEffectGL(TextureGL * interpolator, TextureGL * first, TextureGL * second,
                                       TexGenGL * interpolatorTexGen, TexGenGL * firstTexGen,
                                       TexGenGL * secondTexGen, bool disabled);

    TextureGL * getInterpolator() const { return interpolator_.get(); }
    TextureGL * getFirst() const { return first_.get(); }
    TextureGL * getSecond() const { return second_.get(); }
    TexGenGL * getInterpolatorTexGen() const { return interpolatorTexGen_.get(); }
    TexGenGL * getFirstTexGen() const { return firstTexGen_.get(); }
    TexGenGL * getSecondTexGen() const { return secondTexGen_.get(); }

private:
    SO<TextureGL> interpolator_, first_, second_;
    SO<TexGenGL> interpolatorTexGen_, firstTexGen_, secondTexGen_;
};

} // namespace NBX
