#include "atlasplace.h"

#include <algorithm>
#include <cmath>

#include <nbx/image/subimage.h>

#include "texturepart.h"

namespace ZMT::CORE {

namespace {

/// Below it, a part has no extent in an axis.
constexpr double s_leastExtent = 1e-10;

} // namespace

/// Of the atlas, along an axis: those whose middles lie in the area as triangles see it.
struct AtlasPlace::Pixels {
    int first;
    TextureStretch stretch;
};

AtlasPlace::AtlasPlace(const NBX::Bounds & part, const NBX::Area & area, int atlasSize)
    : s_{part.getLLF().x, part.diagonal().x, double(area.getX()), double(area.getWidth())},
      t_{part.getLLF().y, part.diagonal().y, double(area.getY()), double(area.getHeight())},
      atlasSize_(atlasSize), factor_(1.0 / atlasSize + 1.0) {}

double AtlasPlace::atlasCoordinate(const Axis & axis, double coordinate) const {
    const double inPart = axis.extent < s_leastExtent ? 0.0 : (coordinate - axis.minimum) / axis.extent;
    return (axis.begin + inPart * axis.length) * factor_ / atlasSize_;
}

AtlasPlace::Point AtlasPlace::atlasCoordinates(const Point & textureCoordinates) const {
    return {atlasCoordinate(s_, textureCoordinates.x), atlasCoordinate(t_, textureCoordinates.y), 0.0};
}

AtlasPlace::Pixels AtlasPlace::pixelsOf(const Axis & axis, NBX::TextureGL::WrapMode wrap) const {
    const auto pixelFrom = [this](double texels) {
        return std::clamp(std::ceil(texels * factor_ - 0.5), 0.0, atlasSize_);
    };
    const double first = pixelFrom(axis.begin), behind = pixelFrom(axis.begin + axis.length);
    const double perTexel = axis.length > 0.0 ? axis.extent / axis.length : 0.0;
    return {int(first),
            {axis.minimum + (first / factor_ - axis.begin) * perTexel, perTexel / factor_,
             static_cast<unsigned>(behind - first), wrap}};
}

NBX::Area AtlasPlace::texels() const {
    const Pixels across = pixelsOf(s_, NBX::TextureGL::WM_Repeat),
                 up = pixelsOf(t_, NBX::TextureGL::WM_Repeat);
    return {across.first, up.first, across.stretch.pixels, up.stretch.pixels};
}

void AtlasPlace::draw(const NBX::Image & source, NBX::TextureGL::WrapMode wrapS,
                      NBX::TextureGL::WrapMode wrapT, NBX::Image & atlas) const {
    const Pixels across = pixelsOf(s_, wrapS), up = pixelsOf(t_, wrapT);
    if (across.stretch.pixels == 0 || up.stretch.pixels == 0) return;
    const NBX::SO<NBX::SubImage> area(new NBX::SubImage(
        &atlas, NBX::Area(across.first, up.first, across.stretch.pixels, up.stretch.pixels)));
    drawTexturePart(source, across.stretch, up.stretch, *area);
}

} // namespace ZMT::CORE
