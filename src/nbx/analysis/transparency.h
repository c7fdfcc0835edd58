#pragma once

#include <string>
#include <unordered_map>
#include <utility>

#include <nbx/image/image.h>

#include "flatscene.h"

namespace NBX {

/// Tells what can be seen through: what has an alpha below a threshold. Looks at each image once.
class Transparency {
public:
    explicit Transparency(double alpha) : alpha_(alpha) {}

    /// Of the texture, colour and material in force, apart from colours of vertices.
    bool isTransparent(const FlatShape & flat);
    /// The parts of a shape; null where there is none. A set whose triangles differ is divided, and its parts
    /// share its sequences.
    struct Parts {
        SO<Shape> opaque, transparent;
    };
    Parts divide(const FlatShape & flat);

private:
    bool isBelow(double alpha) const { return alpha < alpha_; }
    bool hasTransparentTexture(const FlatShape & flat);
    bool hasTransparentTexels(const SO<Image> & image);
    bool findTransparentTexels(Image & image) const;

    double alpha_;
    std::unordered_map<const Image *, std::pair<SO<Image>, bool>> byImage_;
    std::unordered_map<std::string, bool> byFile_;
};

} // namespace NBX
