#pragma once

#include <string>
#include <unordered_map>

class OGRFeature;

namespace ZMT::RASTER {

/// What features of a file say of how they are drawn, in the words of a style specification. One thread at a
/// time.
class FeatureStyles {
public:
    /// Lengths on the ground are `metres` long each; for 0, as in degrees, they are left out.
    explicit FeatureStyles(double metres) : metres_(metres) {}

    /// Empty where the feature says nothing that can be drawn. The text is the same object as long as styles
    /// repeat.
    const std::string & of(OGRFeature & feature);

private:
    double metres_;
    std::unordered_map<std::string, std::string> known_; ///< by what the file says
};

} // namespace ZMT::RASTER
