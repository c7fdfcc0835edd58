#pragma once

#include <nbx/gl/texture/texenvgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/object/so.h>

namespace NBX {

/// Everything about one texture unit as one attribute: a texture, how it is combined with what the units
/// before made, and how its coordinates are generated. Each unit is a category of its own.
///
/// Stored attributes: "unit" (default 0), "texture", "texEnv" and "texGen" (null).
class TextureUnitSettingGL : public MonoAttribute {
    NBX_STORED_CLASS(TextureUnitSettingGL, MonoAttribute)
public:
    /// Units counted from 0. Without `texEnv` the texture is multiplied; without `texGen` the engine's
    /// current `TexGenGL` holds, if there is one. A null texture switches the unit off.
    TextureUnitSettingGL(unsigned unit, TextureGL * texture, TexEnvGL * texEnv = nullptr,
                         TexGenGL * texGen = nullptr);
    ~TextureUnitSettingGL() override;

    unsigned unit() const { return unit_; }
    TextureGL * texture() const { return texture_.get(); }
    TexEnvGL * texEnv() const { return texEnv_.get(); }
    TexGenGL * texGen() const { return texGen_.get(); }

    /// A name made of the class name and the unit.
    ID category() const override { return category(unit_); }
    static ID category(unsigned unit);

    /// Brings what `engine` has as current attributes for texture unit `unit` into effect: the setting of the
    /// unit, or without one the `TextureGL` and `TexEnvGL` (unit 0), and the `TexGenGL`.
    /// `leaving` is an attribute that is just ceasing to be the current one; null for none.
    static void updateUnit(EngineGL * engine, unsigned unit, const MonoAttribute * leaving);
    /// The same for the generators of all units alone.
    static void updateTexGens(EngineGL * engine, const MonoAttribute * leaving);

    void serialize(SerializationManager & m) override;

protected:
    TextureUnitSettingGL();

private:
    unsigned unit_ = 0;
    SO<TextureGL> texture_;
    SO<TexEnvGL> texEnv_;
    SO<TexGenGL> texGen_;
};

} // namespace NBX
