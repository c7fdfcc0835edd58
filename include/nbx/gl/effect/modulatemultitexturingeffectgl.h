#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/gl/effect/texturingeffectgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/object/so.h>

namespace NBX {

/// Multiplies the picture by textures.
class ModulateMultiTexturingEffectGL : public TexturingEffectGL {
    NBX_CLASS(ModulateMultiTexturingEffectGL, TexturingEffectGL)
public:
    /// `texGens` and its entries may be null: the engine's current generator then holds. `disabled`: the
    /// effect starts switched off.
    ModulateMultiTexturingEffectGL(Iterator<SO<TextureGL>> * textures, Iterator<SO<TexGenGL>> * texGens,
                                   bool disabled);

    const SO<Iterator<SO<TextureGL>>> & getTextures() const { return textures_; }
    const SO<Iterator<SO<TexGenGL>>> & getTexGens() const { return texGens_; }

private:
    SO<Iterator<SO<TextureGL>>> textures_;
    SO<Iterator<SO<TexGenGL>>> texGens_;
};

} // namespace NBX
