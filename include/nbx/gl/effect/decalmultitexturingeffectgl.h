#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/gl/effect/texturingeffectgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/object/so.h>

namespace NBX {

/// Lays textures over the picture, one after the other, where their alpha says so:
/// texture * litColour * alpha + picture * (1 - alpha), with the alpha of each times the opacity of the
/// effect.
class DecalMultiTexturingEffectGL : public TexturingEffectGL {
    NBX_CLASS(DecalMultiTexturingEffectGL, TexturingEffectGL)
public:
    /// `texGens` and its entries may be null: the engine's current generator then holds. `disabled`: the
    /// effect starts switched off. `opacity` is from 0 to 1.
    DecalMultiTexturingEffectGL(Iterator<SO<TextureGL>> * textures, Iterator<SO<TexGenGL>> * texGens,
                                bool disabled, double opacity = 1.0);

    const SO<Iterator<SO<TextureGL>>> & getTextures() const { return textures_; }
    const SO<Iterator<SO<TexGenGL>>> & getTexGens() const { return texGens_; }
    double getOpacity() const { return opacity_; }

private:
    SO<Iterator<SO<TextureGL>>> textures_;
    SO<Iterator<SO<TexGenGL>>> texGens_;
    double opacity_;
};

} // namespace NBX
