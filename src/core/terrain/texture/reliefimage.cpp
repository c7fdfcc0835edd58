#include <zmt/core/terrain/texture/reliefimage.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <span>

#include <nbx/image/memoryimage.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace ZMT::CORE {

namespace {

/// Which vertex a texel shows.
class Sampling {
public:
    Sampling(const GridData & grid, unsigned maxSide)
        : sizeX_(grid.sizeX()), sizeY_(grid.sizeY()), width_(std::min(sizeX_, maxSide)),
          height_(std::min(sizeY_, maxSide)) {}

    int width() const { return static_cast<int>(width_); }
    int height() const { return static_cast<int>(height_); }
    unsigned column(int x) const { return nearest(x, width_, sizeX_); }
    unsigned row(int y) const { return nearest(y, height_, sizeY_); }

private:
    static unsigned nearest(int texel, unsigned texels, unsigned vertices) {
        const auto vertex = static_cast<unsigned>((texel + 0.5) * vertices / texels);
        return std::min(vertex, vertices - 1);
    }

    unsigned sizeX_, sizeY_, width_, height_;
};

struct ColorStop {
    double position;
    std::array<double, 3> color;
};

/// After the usual tints of relief maps: lowland green, over yellow and brown, to white.
constexpr ColorStop s_landColors[] = {{0.0, {86, 130, 88}},  {0.2, {148, 172, 110}}, {0.4, {214, 203, 145}},
                                      {0.6, {178, 141, 98}}, {0.8, {150, 122, 108}}, {1.0, {250, 250, 250}}};
/// The same for depths: from light to dark blue.
constexpr ColorStop s_seaColors[] = {{0.0, {176, 212, 230}}, {0.1, {136, 184, 216}}, {1.0, {24, 58, 120}}};
constexpr unsigned char s_undefinedGrey = 96;

void setColor(std::span<const ColorStop> colors, double position, unsigned char * texel) {
    const auto next = std::find_if(colors.begin() + 1, colors.end() - 1,
                                   [position](const ColorStop & stop) { return position < stop.position; });
    const ColorStop & low = *(next - 1);
    const double t = std::clamp((position - low.position) / (next->position - low.position), 0.0, 1.0);
    for (unsigned c = 0; c < 3; ++c)
        texel[c] = static_cast<unsigned char>(low.color[c] + t * (next->color[c] - low.color[c]) + 0.5);
}

/// The colours between two heights.
class HeightColors {
public:
    HeightColors(double low, double high)
        : hasSea_(low < 0.0 && high > 0.0), low_(hasSea_ ? 0.0 : low),
          range_(std::max(high - low_, s_leastRange)), depth_(std::max(-low, high)) {}

    void set(double height, unsigned char * texel) const {
        if (hasSea_ && height < 0.0)
            setColor(s_seaColors, -height / depth_, texel);
        else
            setColor(s_landColors, (height - low_) / range_, texel);
    }

private:
    static constexpr double s_leastRange = 1e-12;

    bool hasSea_;
    double low_, range_;
    double depth_; ///< not less than land is high, so that shallow water beside mountains looks shallow
};

/// Of length 1.
NBX::Vector3Base<double> normalOf(const GridData & grid, unsigned column, unsigned row, double exaggeration) {
    const auto normal = grid.normal(column, row);
    return NBX::Vector3Base<double>(normal.x * exaggeration, normal.y, normal.z * exaggeration).normalized();
}

unsigned char byteOf(double share) {
    return static_cast<unsigned char>(std::clamp(share, 0.0, 1.0) * 255.0 + 0.5);
}

} // namespace

NBX::SO<NBX::Image> ReliefImage::createHeightColors(const GridData & grid, unsigned maxSide) {
    const Sampling sampling(grid, maxSide);
    NBX::SO<NBX::Image> image(new NBX::MemoryImage(sampling.width(), sampling.height(), NBX::LS_RGB));
    const NBX::Bounds box = grid.boundingBox();
    const HeightColors colors(box.getLLF().y, box.getURB().y);
    for (int y = 0; y < sampling.height(); ++y) {
        unsigned char * texel = image->lineComponentsU8(y);
        for (int x = 0; x < sampling.width(); ++x, texel += 3) {
            const double height = grid.vertex(sampling.column(x), sampling.row(y)).y;
            if (grid.isUndefinedHeightValue(height))
                std::fill(texel, texel + 3, s_undefinedGrey);
            else
                colors.set(height, texel);
        }
    }
    return image;
}

NBX::SO<NBX::Image> ReliefImage::createShading(const GridData & grid,
                                               const NBX::Vector3Base<double> & direction, double ambient,
                                               unsigned maxSide, double exaggeration) {
    const Sampling sampling(grid, maxSide);
    NBX::SO<NBX::Image> image(new NBX::MemoryImage(sampling.width(), sampling.height(), NBX::LS_Luminance));
    const auto light = direction.normalized();
    for (int y = 0; y < sampling.height(); ++y) {
        unsigned char * texel = image->lineComponentsU8(y);
        for (int x = 0; x < sampling.width(); ++x) {
            const double cosine =
                normalOf(grid, sampling.column(x), sampling.row(y), exaggeration).dot(light);
            texel[x] = byteOf(ambient + (1.0 - ambient) * std::max(cosine, 0.0));
        }
    }
    return image;
}

NBX::SO<NBX::Image> ReliefImage::createNormals(const GridData & grid, unsigned maxSide, double exaggeration) {
    const Sampling sampling(grid, maxSide);
    NBX::SO<NBX::Image> image(new NBX::MemoryImage(sampling.width(), sampling.height(), NBX::LS_RGB));
    for (int y = 0; y < sampling.height(); ++y) {
        unsigned char * texel = image->lineComponentsU8(y);
        for (int x = 0; x < sampling.width(); ++x, texel += 3) {
            const auto normal = normalOf(grid, sampling.column(x), sampling.row(y), exaggeration);
            texel[0] = byteOf(normal.x * 0.5 + 0.5);
            texel[1] = byteOf(normal.y * 0.5 + 0.5);
            texel[2] = byteOf(normal.z * 0.5 + 0.5);
        }
    }
    return image;
}

NBX::SO<NBX::Image> ReliefImage::createShading(const NBX::Image & normals,
                                               const NBX::Vector3Base<double> & direction, double ambient) {
    const bool hasNormals = normals.layerSequence() == NBX::LS_RGB && normals.dataType() == NBX::Image::UInt8;
    NBX_CHECK(hasNormals, L"normals are three layers of 8 bits");
    if (!hasNormals) return nullptr;
    const NBX::Vector3Base<double> toLight = direction.normalized();
    NBX::SO<NBX::Image> light(new NBX::MemoryImage(normals.width(), normals.height(), NBX::LS_Luminance));
    for (int y = 0; y < normals.height(); ++y) {
        const unsigned char * texel = normals.lineComponentsU8(y);
        unsigned char * share = light->lineComponentsU8(y);
        for (int x = 0; x < normals.width(); ++x, texel += 3) {
            const NBX::Vector3Base<double> normal(texel[0] - 127.5, texel[1] - 127.5, texel[2] - 127.5);
            const double cosine = std::max(0.0, normal.normalized().dot(toLight));
            share[x] = static_cast<unsigned char>(std::lround(255.0 * (ambient + (1.0 - ambient) * cosine)));
        }
    }
    return light;
}

} // namespace ZMT::CORE
