#pragma once

#include <cstdint>
#include <vector>

#include <nbx/math/color.h>
#include <nbx/math/vector3base.h>

namespace ZMT::CORE {

/// Triangles without indices in lists of one length.
struct TriangleLists {
    std::vector<NBX::Vector3Base<double>> vertices, texCoords;
    std::vector<NBX::Color> colors;
    std::vector<double> models = {}; ///< their numbers; none where models are not told apart
};

/// Splits triangles that repeat their texture too often.
class RepeatSplit {
public:
    /// What the bounds of the split left as it was.
    struct Result {
        std::uint64_t splits = 0;
        std::uint64_t leftWhole = 0; ///< triangles that would have fallen into too many pieces
    };

    /// Replaces each triangle whose coordinates differ by more than `maxRepeat` along s or t by pieces that
    /// do not, in its place. The pieces of one triangle wind as it does, and have its area in sum.
    static Result apply(TriangleLists & triangles, double maxRepeat);
};

} // namespace ZMT::CORE
