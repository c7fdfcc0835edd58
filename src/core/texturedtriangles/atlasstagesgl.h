#pragma once

#include <vector>

#include <nbx/gl/texture/texturegl.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {
class EngineGL;
}

namespace ZMT::CORE {

/// A texture of a tree as it is laid on its triangles.
struct AtlasGL {
    NBX::SO<NBX::SharedObj> texture; ///< a `StreamTexture` or an `ImageTexture2DGL`
    double scale = 1.0;              ///< from the triangles' coordinates to those of the texture
    unsigned coordinates = 0;        ///< which set of coordinates it takes
    /// Beyond its edges. A border has the colour of the edge.
    NBX::TextureGL::WrapMode wrapS = NBX::TextureGL::WM_Repeat, wrapT = NBX::TextureGL::WM_Repeat;

    explicit operator bool() const { return bool(texture); }
};

/// A texture, and a coarser one from which it is blended in.
struct BlendedAtlasGL {
    AtlasGL fine, coarse; ///< without a fine one there is nothing
    double weight = 1.0;  ///< of the fine one; below 1 there is a coarse one
};

/// While an object lives up to two blended textures are multiplied with the colours of what is drawn, on as
/// many texture units as that takes, from unit 0 on. At its end the units have no texture; bindings and
/// environments of the units are left changed.
///
/// Where both are blended at once, or the units do not suffice, the second is not blended.
class AtlasStagesGL {
public:
    /// Whether a texture is one of those, and has what it takes to be drawn. Null is not.
    static bool isUsable(const NBX::SharedObj * texture);

    AtlasStagesGL(NBX::EngineGL * engine, const BlendedAtlasGL & first, const BlendedAtlasGL & second);
    ~AtlasStagesGL();
    AtlasStagesGL(const AtlasStagesGL &) = delete;
    AtlasStagesGL & operator=(const AtlasStagesGL &) = delete;

    /// The set of coordinates that each unit takes, for `MappedVertexAttributeBindingGL`.
    const std::vector<unsigned> & coordinateSets() const { return sets_; }

private:
    void plan(const BlendedAtlasGL & first, const BlendedAtlasGL & second, unsigned units);
    void apply(const AtlasGL & atlas);

    NBX::EngineGL * engine_;
    std::vector<AtlasGL> applied_; ///< by unit
    std::vector<unsigned> sets_;
    double weight_ = 1.0; ///< of unit 1 over unit 0; 1 without blending
};

} // namespace ZMT::CORE
