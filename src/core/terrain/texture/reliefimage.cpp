// A texel shows a vertex, or, in colours of shaped cells, a quarter of a cell's side. Tints are interpolated
// linearly between stops at shares of the range of heights; normals come of the differences of the
// neighbours, in the exaggerated shape.

#include <zmt/core/terrain/texture/reliefimage.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <optional>
#include <span>
#include <vector>

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

    std::vector<ReliefImage::Tint> tints() const {
        std::vector<ReliefImage::Tint> tints;
        tints.reserve(std::size(s_seaColors) + std::size(s_landColors));
        const auto add = [&tints](double height, const std::array<double, 3> & c) {
            tints.push_back({height, NBX::Color(c[0] / 255.0, c[1] / 255.0, c[2] / 255.0)});
        };
        if (hasSea_)
            for (std::size_t i = std::size(s_seaColors); i-- > 0;)
                add(0.0 - s_seaColors[i].position * depth_, s_seaColors[i].color);
        for (const ColorStop & stop : s_landColors)
            add(low_ + stop.position * range_, stop.color);
        return tints;
    }

private:
    static constexpr double s_leastRange = 1e-12;

    bool hasSea_;
    double low_, range_;
    double depth_; ///< not less than land is high, so that shallow water beside mountains looks shallow
};

unsigned char byteOf(double share) {
    return static_cast<unsigned char>(std::clamp(share, 0.0, 1.0) * 255.0 + 0.5);
}

/// Colours between those of some heights.
class TintedHeights {
public:
    explicit TintedHeights(std::span<const ReliefImage::Tint> tints) : tints_(tints) {}

    void set(double height, unsigned char * texel) const {
        const auto isAbove = [](double h, const ReliefImage::Tint & tint) { return h < tint.height; };
        const auto next = std::upper_bound(tints_.begin(), tints_.end(), height, isAbove);
        const auto & high = next == tints_.end() ? tints_.back() : *next;
        const auto & low = next == tints_.begin() ? tints_.front() : *(next - 1);
        const double share =
            high.height > low.height ? (height - low.height) / (high.height - low.height) : 0.0;
        for (unsigned c = 0; c < 3; ++c) {
            const double from = low.color[c], to = high.color[c];
            texel[c] = byteOf(from + share * (to - from));
        }
    }

private:
    std::span<const ReliefImage::Tint> tints_;
};

/// The heights of a grid with the shapes of its cells.
class ShapedHeights {
public:
    explicit ShapedHeights(const GridData & grid) : grid_(grid) {}

    /// At a place in cells from the first vertex. Nothing where it is undefined.
    std::optional<double> at(double column, double row) const {
        column = std::clamp(column, 0.0, grid_.sizeX() - 1.0);
        row = std::clamp(row, 0.0, grid_.sizeY() - 1.0);
        const unsigned x = cellOf(column, grid_.sizeX()), y = cellOf(row, grid_.sizeY());
        const std::vector<unsigned> corners = grid_.cellCorners(x, y);
        const Point place(grid_.scale().x * column, 0.0, grid_.scale().z * row);
        for (std::size_t i = 0; i + 2 < corners.size(); i += 3)
            if (const auto height = onTriangle(place, {grid_.vertex(corners[i]), grid_.vertex(corners[i + 1]),
                                                       grid_.vertex(corners[i + 2])}))
                return height;
        return between(x, y, column - x, row - y);
    }

private:
    using Point = NBX::Vector3Base<double>;
    using Triangle = std::array<Point, 3>;

    static constexpr double s_rounding = 1e-9; ///< of shares of a triangle

    static unsigned cellOf(double place, unsigned vertices) {
        return std::min(static_cast<unsigned>(place), std::max(vertices, 2U) - 2);
    }
    bool isDefined(double height) const { return !grid_.isUndefinedHeightValue(height); }

    std::optional<double> onTriangle(const Point & place, const Triangle & t) const {
        const auto cross = [](const Point & a, const Point & b) { return a.x * b.z - a.z * b.x; };
        const double area = cross(t[1] - t[0], t[2] - t[0]);
        double height = 0.0;
        for (unsigned k = 0; k < 3; ++k) {
            const Point & a = t[(k + 1) % 3];
            const double share = cross(t[(k + 2) % 3] - a, place - a) / area;
            // Also where there is no area.
            if (!(share >= -s_rounding) || !isDefined(t[k].y)) return {};
            height += share * t[k].y;
        }
        return height;
    }

    /// Of a plain cell; that of the nearest vertex where one of the four has none.
    std::optional<double> between(unsigned x, unsigned y, double right, double up) const {
        double height = 0.0;
        bool isComplete = true;
        for (const unsigned i : {0U, 1U})
            for (const unsigned j : {0U, 1U}) {
                const double corner = heightAt(x + i, y + j);
                isComplete = isComplete && isDefined(corner);
                height += (i ? right : 1.0 - right) * (j ? up : 1.0 - up) * corner;
            }
        if (!isComplete) height = heightAt(x + unsigned(right >= 0.5), y + unsigned(up >= 0.5));
        return isDefined(height) ? std::optional(height) : std::nullopt;
    }
    double heightAt(unsigned x, unsigned y) const {
        return grid_.vertex(std::min(x, grid_.sizeX() - 1), std::min(y, grid_.sizeY() - 1)).y;
    }

    const GridData & grid_;
};

/// Several texels a cell.
template <class Colors>
NBX::SO<NBX::Image> createShapedColors(const GridData & grid, const Colors & colors, unsigned maxSide) {
    constexpr unsigned texelsOfCell = 4;
    const ShapedHeights heights(grid);
    const auto texels = [maxSide](unsigned vertices) {
        return int(std::min<std::uint64_t>(std::uint64_t(vertices) * texelsOfCell, maxSide));
    };
    const int width = texels(grid.sizeX()), lines = texels(grid.sizeY());
    NBX::SO<NBX::Image> image(new NBX::MemoryImage(width, lines, NBX::LS_RGB));
    for (int y = 0; y < lines; ++y) {
        unsigned char * texel = image->lineComponentsU8(y);
        for (int x = 0; x < width; ++x, texel += 3) {
            const auto height =
                heights.at((x + 0.5) * grid.sizeX() / width - 0.5, (y + 0.5) * grid.sizeY() / lines - 0.5);
            if (height)
                colors.set(*height, texel);
            else
                std::fill(texel, texel + 3, s_undefinedGrey);
        }
    }
    return image;
}

template <class Colors>
NBX::SO<NBX::Image> createColors(const GridData & grid, const Colors & colors, unsigned maxSide) {
    if (grid.hasCellShapes()) return createShapedColors(grid, colors, maxSide);
    const Sampling sampling(grid, maxSide);
    NBX::SO<NBX::Image> image(new NBX::MemoryImage(sampling.width(), sampling.height(), NBX::LS_RGB));
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

/// Of length 1.
NBX::Vector3Base<double> normalOf(const GridData & grid, unsigned column, unsigned row, double exaggeration) {
    const auto normal = grid.normal(column, row);
    return NBX::Vector3Base<double>(normal.x * exaggeration, normal.y, normal.z * exaggeration).normalized();
}

} // namespace

NBX::SO<NBX::Image> ReliefImage::createHeightColors(const GridData & grid, unsigned maxSide) {
    const NBX::Bounds box = grid.boundingBox();
    return createColors(grid, HeightColors(box.getLLF().y, box.getURB().y), maxSide);
}

std::vector<ReliefImage::Tint> ReliefImage::usualTints(double low, double high) {
    return HeightColors(low, high).tints();
}

NBX::SO<NBX::Image> ReliefImage::createHeightColors(const GridData & grid, std::span<const Tint> tints,
                                                    unsigned maxSide) {
    const auto isLower = [](const Tint & a, const Tint & b) { return a.height < b.height; };
    const bool isTable = !tints.empty() && std::is_sorted(tints.begin(), tints.end(), isLower);
    NBX_CHECK(isTable, L"tints are sorted by height, and at least one");
    return isTable ? createColors(grid, TintedHeights(tints), maxSide) : createHeightColors(grid, maxSide);
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
