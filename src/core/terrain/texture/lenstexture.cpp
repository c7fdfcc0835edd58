#include <zmt/core/terrain/texture/lenstexture.h>

#include <algorithm>
#include <cmath>

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

namespace {

constexpr int s_size = 512;
constexpr int s_half = s_size / 2;

/// Not a number counts as 0.
double cut(double value) {
    return value > 0.0 ? std::min(value, 1.0) : 0.0;
}

/// One value inside, another one outside, and a linear seam.
class DefaultIntensityCB : public LensTexture::Intensity {
    NBX_TEMPLATE_CLASS(DefaultIntensityCB, LensTexture::Intensity)
public:
    DefaultIntensityCB(double inner, double outer, double fade)
        : inner_(cut(inner)), outer_(cut(outer)), fade_(cut(fade)) {}

    double call(double r) override {
        if (r >= 1.0) return outer_;
        if (1.0 - fade_ >= r) return inner_;
        const double t = (1.0 - cut(r)) / fade_;
        return t * inner_ + (1.0 - t) * outer_;
    }

private:
    double inner_, outer_, fade_;
};

NBX::LayerSequence layersOf(LensTexture::TextureType type) {
    switch (type) {
    case LensTexture::TT_Luminance:
        return NBX::LS_Luminance;
    case LensTexture::TT_Alpha:
        return NBX::LS_Alpha;
    case LensTexture::TT_Intensity:
        return NBX::LS_Intensity;
    }
    NBX_REPORT(0, L"false", L"invalid texture type");
    return NBX::LS_Luminance;
}

/// The distance from the centre of pixel (`j`, `i`) of a quadrant. The outermost pixels are the edge, so that
/// nothing but the outside goes on beyond the lens.
double distanceAt(int j, int i) {
    constexpr int last = s_half - 1;
    if (i == last || j == last) return 1.0;
    const double x = double(j) / last, y = double(i) / last;
    return std::min(std::sqrt(x * x + y * y), 1.0);
}

/// All four quadrants are alike.
NBX::SO<NBX::Image> newLensImage(LensTexture::Intensity * intensity, NBX::LayerSequence layers) {
    const NBX::SO<NBX::MemoryImage> image(
        new NBX::MemoryImage(s_size, s_size, layers, NBX::Image::UInt8, 8, NBX::ML_Interleaved));
    NBX_CHECK(intensity, L"no intensity");
    const NBX::SO<LensTexture::Intensity> held(intensity);
    if (!held) return image;
    for (int i = 0; i < s_half; ++i)
        for (int j = 0; j < s_half; ++j) {
            const auto v = static_cast<unsigned char>(cut(held->call(distanceAt(j, i))) * 255.0);
            for (const int y : {s_half - 1 - i, s_half + i})
                for (const int x : {s_half - 1 - j, s_half + j})
                    *image->pixelComponentsU8(x, y, 0) = v;
        }
    return image;
}

NBX::SO<NBX::TextureGL> newLens(LensTexture::Intensity * intensity, LensTexture::TextureType type) {
    return new NBX::ImageTexture2DGL(newLensImage(intensity, layersOf(type)), NBX::TextureGL::WM_ClampToEdge,
                                     NBX::TextureGL::WM_ClampToEdge, NBX::TextureGL::FM_LinearMipmapLinear,
                                     NBX::TextureGL::FM_Linear, 1.0, NBX::Matrix4x4Base<double>(),
                                     NBX::Color(0.0, 0.0, 0.0, 0.0));
}

} // namespace

LensTexture::LensTexture() = default;

LensTexture::LensTexture(double inner, double outer, double fade, TextureType type, const Point & center,
                         const Point & radius)
    : LensTexture(new DefaultIntensityCB(inner, outer, fade), type, center, radius) {}

LensTexture::LensTexture(Intensity * intensity, TextureType type, const Point & center, const Point & radius)
    : SimpleTerrainTexture(newLens(intensity, type), NBX::Bounds(center - radius, center + radius),
                           Matrix()) {
    LensTexture::setRadius(radius);
}

LensTexture::Point LensTexture::getCenter() const {
    return boundingBox().point(0.5, 0.0, 0.5);
}

void LensTexture::setCenter(const Point & c) {
    const Point r = getRadius();
    setBoundingBox(NBX::Bounds(c + r, c - r));
    modified();
}

LensTexture::Point LensTexture::getRadius() const {
    return boundingBox().point(1.0, 0.0, 1.0) - getCenter();
}

void LensTexture::setRadius(const Point & r) {
    const Point c = getCenter(), a(std::abs(r.x), 0.0, std::abs(r.z));
    setBoundingBox(NBX::Bounds(c + a, c - a));
    modified();
}

NBX_STORED_CLASS_IMPL(LensTexture, SimpleTerrainTexture)

} // namespace ZMT::CORE
