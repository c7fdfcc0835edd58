#pragma once

#include <nbx/object/wo.h>

namespace NBX {

class ContextGL;

/// Owns one name that OpenGL gave out. It is freed at once when a context that knows it is current on the
/// calling thread, else as soon as one becomes current.
///
/// Names may be dropped on any thread; everything else needs a current context.
class NameGL {
public:
    enum Kind {
        NK_Buffer,
        NK_Texture,
        NK_DisplayList,
        NK_RenderBuffer,
        NK_ShaderObject, ///< program or shader object
        NK_FrameBuffer,  ///< belongs to one context
        NK_Query         ///< belongs to one context
    };

    /// Owns nothing.
    NameGL() = default;
    /// Takes over `name`, which the current context made.
    NameGL(Kind kind, unsigned name);
    NameGL(NameGL && other) noexcept;
    NameGL & operator=(NameGL && other) noexcept;
    NameGL(const NameGL &) = delete;
    NameGL & operator=(const NameGL &) = delete;
    ~NameGL();

    /// A new name of any kind but `NK_ShaderObject`; without a current context it owns nothing, after a
    /// report at level 0.
    static NameGL generate(Kind kind);

    /// 0 when nothing is owned.
    unsigned get() const { return name_; }
    explicit operator bool() const { return name_ != 0; }
    /// Whether the current context knows the name.
    bool isKnownHere() const;
    /// Gives the name up now.
    void drop();

    /// Whether names of this kind are known to one context only.
    static bool isOwnedByContext(Kind kind) { return kind == NK_FrameBuffer || kind == NK_Query; }

private:
    Kind kind_ = NK_Buffer;
    unsigned name_ = 0;
    WO<ContextGL> context_;
};

} // namespace NBX
