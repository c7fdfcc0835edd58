#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/gl/effect/texturingeffectgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/object/so.h>

namespace NBX {

/// Adds textures, each multiplied by the lit colour of the shape, to the picture:
/// previousWeight * picture + sum of weight[i] * texture[i] * litColour, cut to 1.
class AdditiveMultiTexturingEffectGL : public TexturingEffectGL {
    NBX_CLASS(AdditiveMultiTexturingEffectGL, TexturingEffectGL)
public:
    /// A texture without a weight counts with 1; weights below 0 are as 0. `texGens` and its entries may be
    /// null: the engine's current generator then holds. `disabled`: the effect starts switched off.
    AdditiveMultiTexturingEffectGL(Iterator<SO<TextureGL>> * textures, Iterator<double> * weights,
                                   Iterator<SO<TexGenGL>> * texGens, double previousEffectWeight,
                                   bool disabled);

    const SO<Iterator<SO<TextureGL>>> & getTextures() const { return textures_; }
    const SO<Iterator<double>> & getWeights() const { return weights_; }
    const SO<Iterator<SO<TexGenGL>>> & getTexGens() const { return texGens_; }
    double getPreviousEffectWeight() const { return previousEffectWeight_; }

private:
    SO<Iterator<SO<TextureGL>>> textures_;
    SO<Iterator<double>> weights_;
    SO<Iterator<SO<TexGenGL>>> texGens_;
    double previousEffectWeight_;
};

} // namespace NBX
