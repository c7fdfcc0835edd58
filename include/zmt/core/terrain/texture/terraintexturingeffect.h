#pragma once

#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {
class EngineGL;
class TexturingEffectGL;
class ViewInfo;
} // namespace NBX

namespace ZMT::CORE {

class GeometryPatch;

/// Combines terrain textures on a patch. The effects pushed on an engine form one stack; the painter asks
/// them from the top downwards. See `TerrainTexture` for the arguments.
class TerrainTexturingEffect : public NBX::MonoAttribute {
    NBX_CLASS(TerrainTexturingEffect, NBX::MonoAttribute)
public:
    /// The name of this class for all subclasses, so that they share one stack.
    NBX::ID category() const override;

    /// True when a texture that would be used for this patch wants it split.
    virtual bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                        unsigned viewportHeight, const NBX::Vector3Base<double> & eye, double textureError,
                        bool inMotion) const = 0;
    /// True when the effects lower on the stack are not to be asked for this patch.
    virtual bool ignorePreviousEffects(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo,
                                       unsigned viewportWidth, unsigned viewportHeight,
                                       const NBX::Vector3Base<double> & eye, double textureError,
                                       bool inMotion) const = 0;
    /// A new texturing object of the engine for this patch; null when the effect contributes nothing.
    virtual NBX::SO<NBX::TexturingEffectGL> request(const GeometryPatch * patch, NBX::EngineGL * engine,
                                                    const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                                    unsigned viewportHeight, double priority,
                                                    const NBX::Vector3Base<double> & eye, double textureError,
                                                    bool inMotion, bool asynchronous,
                                                    bool & incomplete) const = 0;

protected:
    TerrainTexturingEffect() : NBX::MonoAttribute(true) {}
};

} // namespace ZMT::CORE
