// A triangle is halved at the middle of the edge along which the coordinate that repeats most changes most,
// and so are the halves. Coordinates of any size may come from a file, so the number of pieces is bounded,
// for one triangle by an estimate before it is split, and for all by what was spent.

#include "repeatsplit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "trianglecollector.h"

namespace ZMT::CORE {

namespace {

using Vector = NBX::Vector3Base<double>;

struct TexturedCorner {
    Vector vertex, texCoord;
    NBX::Color color;
    double model; ///< the same at all corners of a triangle
};
using TexturedCorners = std::array<TexturedCorner, 3>;

NBX::Color mean(const NBX::Color & a, const NBX::Color & b) {
    return {(double(a[0]) + b[0]) / 2.0, (double(a[1]) + b[1]) / 2.0, (double(a[2]) + b[2]) / 2.0,
            (double(a[3]) + b[3]) / 2.0};
}

TexturedCorner mean(const TexturedCorner & a, const TexturedCorner & b) {
    return {(a.vertex + b.vertex) / 2.0, (a.texCoord + b.texCoord) / 2.0, mean(a.color, b.color), a.model};
}

/// The edge along which one coordinate changes most, and by how much.
struct Edge {
    unsigned number = 0; ///< from the corner of this number to the next one
    double difference = 0.0;
};

Edge longestEdge(const TexturedCorners & c, unsigned axis) {
    Edge longest;
    for (unsigned i = 0; i < 3; ++i) {
        const double difference = std::abs(c[(i + 1) % 3].texCoord[axis] - c[i].texCoord[axis]);
        if (difference > longest.difference) longest = {i, difference};
    }
    return longest;
}

/// About how many pieces a triangle falls into.
double expectedPieces(const TexturedCorners & corners, double maxRepeat) {
    const auto parts = [&](unsigned axis) {
        return std::ceil(longestEdge(corners, axis).difference / maxRepeat);
    };
    return 2.0 * std::max(1.0, parts(0)) * std::max(1.0, parts(1));
}

class Splitter {
public:
    Splitter(double maxRepeat, std::uint64_t budget) : maxRepeat_(maxRepeat), budget_(budget) {}

    /// Appends the pieces of a triangle to `output`.
    void split(const TexturedCorners & corners, TriangleLists & output) {
        const bool whole = needsSplit(corners) &&
                           !(expectedPieces(corners, maxRepeat_) <= TriangleCollector::maxPiecesOfTriangle);
        if (whole) {
            ++result.leftWhole;
            append(corners, output);
            return;
        }
        stack_.push_back(corners);
        bool complete = true;
        while (!stack_.empty()) {
            const TexturedCorners piece = stack_.back();
            stack_.pop_back();
            complete = halve(piece) && complete;
            if (!wasHalved_) append(piece, output);
        }
        if (!complete) ++result.leftWhole;
    }

    RepeatSplit::Result result;
    bool hasModels = false;

private:
    bool needsSplit(const TexturedCorners & c) const {
        return std::max(longestEdge(c, 0).difference, longestEdge(c, 1).difference) > maxRepeat_;
    }

    /// Puts the halves on the stack, unless the piece is small enough. False when it is not, and the budget
    /// is spent.
    bool halve(const TexturedCorners & c) {
        wasHalved_ = false;
        const Edge alongS = longestEdge(c, 0), alongT = longestEdge(c, 1);
        const Edge & edge = alongS.difference >= alongT.difference ? alongS : alongT;
        if (!(edge.difference > maxRepeat_)) return true;
        if (result.splits >= budget_) return false;
        ++result.splits;
        const unsigned i = edge.number, j = (i + 1) % 3, k = (i + 2) % 3;
        const TexturedCorner middle = mean(c[i], c[j]);
        stack_.push_back({middle, c[j], c[k]});
        stack_.push_back({c[i], middle, c[k]});
        return wasHalved_ = true;
    }

    void append(const TexturedCorners & corners, TriangleLists & output) const {
        for (const TexturedCorner & corner : corners) {
            output.vertices.push_back(corner.vertex);
            output.texCoords.push_back(corner.texCoord);
            output.colors.push_back(corner.color);
            if (hasModels) output.models.push_back(corner.model);
        }
    }

    double maxRepeat_;
    std::uint64_t budget_;
    std::vector<TexturedCorners> stack_;
    bool wasHalved_ = false;
};

} // namespace

RepeatSplit::Result RepeatSplit::apply(TriangleLists & triangles, double maxRepeat) {
    Splitter splitter(maxRepeat, TriangleCollector::maxSplitsOfMesh);
    splitter.hasModels = triangles.models.size() == triangles.vertices.size();
    TriangleLists output;
    output.vertices.reserve(triangles.vertices.size());
    output.texCoords.reserve(triangles.vertices.size());
    output.colors.reserve(triangles.vertices.size());
    output.models.reserve(triangles.models.size());
    for (std::size_t i = 0; i + 2 < triangles.vertices.size(); i += 3) {
        TexturedCorners corners;
        for (std::size_t k = 0; k < 3; ++k)
            corners[k] = {triangles.vertices[i + k], triangles.texCoords[i + k], triangles.colors[i + k],
                          splitter.hasModels ? triangles.models[i + k] : 0.0};
        splitter.split(corners, output);
    }
    if (output.vertices.size() != triangles.vertices.size()) triangles = std::move(output);
    return splitter.result;
}

} // namespace ZMT::CORE
