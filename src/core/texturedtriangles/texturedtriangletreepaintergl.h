#pragma once

#include <cstdint>

#include <nbx/engine/shapepainter.h>

namespace ZMT::CORE {

/// Draws a `TexturedTriangleTree`: each part by the node whose distance its atlas suffices for, with the
/// nearest atlas that is in memory on the way to the root, and asks `TTTMemoryController` for what is
/// missing.
///
/// Laws: (1) every leaf in view, and within the far limit, is drawn exactly once, whatever is loaded, as long
/// as there is a root atlas. (2) Nothing is waited for: neither textures nor counts of fragments. (3) A
/// picture of which something that can come is missing asks for another one; one that has settled does not.
/// (4) With blending, what is drawn is a continuous function of the eye's position between two arrivals.
class TexturedTriangleTreePainterGL : public NBX::ShapePainter {
    NBX_CLASS(TexturedTriangleTreePainterGL, NBX::ShapePainter)
public:
    /// What was drawn since the last reset, all trees together.
    struct Statistics {
        unsigned nodes = 0;     ///< drawn by an atlas
        unsigned originals = 0; ///< leaves drawn by their source textures
        unsigned drawCalls = 0;
        std::uint64_t vertices = 0;
    };
    static const Statistics & statistics();
    static void resetStatistics();

    NBX::ID target() const override;
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
