#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// How textures combine with the picture of the shapes that follow in a node. A node may carry several
/// effects: the top one stands first, the bottom one last, then the shapes. The bottom effect finds the lit
/// colour of the shapes, each other one what the effect below it made.
///
/// The engine draws the shapes in as many passes as the effects need with the texture units there are. The
/// picture does not depend on their number, but for rounding.
class TexturingEffectGL : public MonoAttribute {
    NBX_CLASS(TexturingEffectGL, MonoAttribute)
public:
    explicit TexturingEffectGL(bool enabled = true);

    /// The name of this class for all subclasses.
    ID category() const override;
    /// True.
    bool isPassEffect() const override;
};

} // namespace NBX
