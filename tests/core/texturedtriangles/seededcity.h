#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/polygonset.h>

/// A town of a few blocks, the same for the same seed: houses with facades of their own, roofs that repeat
/// their texture, a sign with a letter that looks otherwise in a mirror, posters whose textures end at their
/// edges or are mirrored, the ground, and, if that is wanted, glass and leaves. Eight units are a storey of
/// two.
class SeededCity {
public:
    using V = NBX::Vector3Base<double>;
    using Wrap = NBX::TextureGL::WrapMode;
    static constexpr int s_blocks = 3;          ///< in each direction
    static constexpr double s_pitch = 24.0;     ///< from one house to the next
    static constexpr double s_houseSide = 14.0; ///< the rest is street

    explicit SeededCity(unsigned seed, bool hasGlassAndLeaves = false) : random_(seed) {
        opaque_ = new NBX::SceneThing;
        transparent_ = new NBX::SceneThing;
        addGround();
        for (int z = 0; z < s_blocks; ++z)
            for (int x = 0; x < s_blocks; ++x)
                addHouse({x * s_pitch, 0.0, z * s_pitch});
        addPosters();
        if (!hasGlassAndLeaves) return;
        addGlass();
        addLeaves();
    }

    const NBX::SO<NBX::SceneThing> & opaque() const { return opaque_; }
    const NBX::SO<NBX::SceneThing> & transparent() const { return transparent_; }
    NBX::SO<NBX::SceneThing> all() const {
        NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
        scene->append(opaque_.get());
        scene->append(transparent_.get());
        return scene;
    }
    static V middle() {
        const double half = ((s_blocks - 1) * s_pitch + s_houseSide) / 2.0;
        return {half, 4.0, half};
    }

private:
    using Texture = NBX::SO<NBX::ImageTexture2DGL>;
    using Image = NBX::SO<NBX::MemoryImage>;

    double between(double low, double high) {
        return low + (high - low) * (double(random_()) / double(std::mt19937::max()));
    }
    NBX::Color color(double low, double high) {
        const double r = between(low, high), g = between(low, high), b = between(low, high);
        return {r, g, b, 1.0};
    }

    template <class Function>
    static Image painted(int width, int height, Function colorOf, NBX::LayerSequence layers = NBX::LS_RGB) {
        Image image(new NBX::MemoryImage(width, height, layers));
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                image->setColor(x, y, colorOf((x + 0.5) / width, (y + 0.5) / height));
        return image;
    }
    static NBX::Color shaded(const NBX::Color & color, double by) {
        return {double(color[0]) * by, double(color[1]) * by, double(color[2]) * by, double(color[3])};
    }

    /// Windows in a wall whose light changes slowly, and a letter F in its lower left corner.
    Image facade() {
        const NBX::Color wall = color(0.4, 0.9), window = color(0.05, 0.3), sign = color(0.6, 1.0);
        const int columns = 3 + int(random_() % 3), rows = 2 + int(random_() % 3);
        return painted(128, 128, [=](double s, double t) {
            const double inColumn = s * columns - std::floor(s * columns),
                         inRow = t * rows - std::floor(t * rows);
            const bool isStem = s > 0.04 && s < 0.08 && t > 0.04 && t < 0.3;
            const bool isBar = s >= 0.08 && s < 0.2 && ((t > 0.26 && t < 0.3) || (t > 0.15 && t < 0.18));
            if (isStem || (isBar && (t > 0.2 || s < 0.15))) return sign;
            const bool isWindow = inColumn > 0.3 && inColumn < 0.7 && inRow > 0.3 && inRow < 0.75;
            return isWindow ? window : shaded(wall, 0.8 + 0.2 * t + 0.04 * std::sin(40.0 * s));
        });
    }
    /// Rows of tiles, each with a slope of its own.
    Image tiles() {
        const NBX::Color tile = color(0.3, 0.7);
        return painted(32, 32, [=](double s, double t) {
            const double row = t * 2.0, across = (s + 0.5 * std::floor(row)) * 2.0;
            const double slope = row - std::floor(row), round = across - std::floor(across) - 0.5;
            return shaded(tile, 1.0 - 0.4 * slope - 0.6 * round * round);
        });
    }
    /// A ramp, whose edges differ, so that an edge that repeats, ends or is mirrored shows.
    static Image ramp() {
        return painted(32, 32, [](double s, double t) {
            const bool isSpot = std::abs(s - 0.25) < 0.1 && std::abs(t - 0.75) < 0.1;
            return isSpot ? NBX::Color(1.0F, 1.0F, 1.0F) : NBX::Color(s, t, 0.25);
        });
    }

    static Texture textureOf(const Image & image, Wrap s = Wrap::WM_Repeat, Wrap t = Wrap::WM_Repeat) {
        return new NBX::ImageTexture2DGL(NBX::SO<NBX::Image>(image.get()), s, t);
    }

    /// The triangles of quadrangles, each given by its lower left corner and its edges as who looks at its
    /// front sees them.
    struct Quads {
        std::vector<V> vertices, texCoords;

        void add(const V & corner, const V & right, const V & up, double repeatS = 1.0, double repeatT = 1.0,
                 const V & begin = {}) {
            for (const auto & [s, t] : {std::pair(0, 0), {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}}) {
                vertices.push_back(corner + right * s + up * t);
                texCoords.push_back(begin + V(s * repeatS, t * repeatT, 0.0));
            }
        }
    };
    static void append(NBX::SceneThing & parent, const Texture & texture, Quads quads) {
        using Vectors = NBX::Array<V>;
        const NBX::SO<NBX::PolygonSet> set(
            new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new Vectors(std::move(quads.vertices))));
        set->setTextureIterator(new Vectors(std::move(quads.texCoords)));
        const NBX::SO<NBX::SceneThing> node(new NBX::SceneThing(&parent));
        node->append(texture.get());
        node->append(set.get());
    }

    void addGround() {
        Quads ground;
        const double side = s_blocks * s_pitch + 8.0;
        ground.add({-8.0, 0.0, -8.0}, {side, 0.0, 0.0}, {0.0, 0.0, side}, side / 4.0, side / 4.0);
        append(*opaque_, textureOf(tiles()), ground);
    }
    void addHouse(const V & at) {
        const double side = s_houseSide, height = between(7.0, 18.0), ridge = height + between(2.0, 5.0);
        Quads walls, roof;
        walls.add(at, {side, 0, 0}, {0, height, 0});
        walls.add(at + V(side, 0, 0), {0, 0, side}, {0, height, 0});
        walls.add(at + V(side, 0, side), {-side, 0, 0}, {0, height, 0});
        walls.add(at + V(0, 0, side), {0, 0, -side}, {0, height, 0});
        append(*opaque_, textureOf(facade()), walls);
        const V slope(0, ridge - height, side / 2.0), back(0, ridge - height, -side / 2.0);
        roof.add(at + V(0, height, 0), {side, 0, 0}, slope, 6.0, 4.0, {3.25, -2.5, 0.0});
        roof.add(at + V(side, height, side), {-side, 0, 0}, back, 6.0, 4.0);
        append(*opaque_, textureOf(tiles()), roof);
    }
    /// In front of the first row, by pairs of modes.
    void addPosters() {
        const Image image = ramp();
        double x = 0.5;
        for (const auto & [s, t] : {std::pair(Wrap::WM_ClampToEdge, Wrap::WM_ClampToEdge),
                                    {Wrap::WM_MirroredRepeat, Wrap::WM_MirroredRepeat},
                                    {Wrap::WM_Repeat, Wrap::WM_ClampToEdge},
                                    {Wrap::WM_Repeat, Wrap::WM_Repeat}}) {
            Quads poster;
            poster.add({x, 1.0, -0.5}, {5.0, 0, 0}, {0, 5.0, 0}, 3.0, 3.0, {-1.0, -1.0, 0.0});
            append(*opaque_, textureOf(image, s, t), poster);
            x += 6.0;
        }
    }
    /// Panes between the houses of the first row.
    void addGlass() {
        const Image image = painted(
            16, 16,
            [](double s, double t) {
                const bool isFrame = std::min({s, t, 1.0 - s, 1.0 - t}) < 0.1;
                return isFrame ? NBX::Color(0.3F, 0.2F, 0.1F, 1.0F) : NBX::Color(0.3F, 0.6F, 0.7F, 0.4F);
            },
            NBX::LS_RGBA);
        Quads panes;
        for (int i = 0; i + 1 < s_blocks; ++i)
            panes.add({s_houseSide + i * s_pitch + 0.5, 0.5, 4.0}, {9.0, 0, 0}, {0, 6.0, 0});
        append(*transparent_, textureOf(image), panes);
    }
    /// Two crossed quadrangles a tree.
    void addLeaves() {
        std::vector<std::array<double, 3>> leaves;
        for (int i = 0; i < 60; ++i)
            leaves.push_back({between(0.15, 0.85), between(0.3, 0.85), between(0.3, 0.9)});
        const Image image = painted(
            64, 64,
            [&](double s, double t) {
                for (const auto & [x, y, green] : leaves)
                    if ((s - x) * (s - x) + (t - y) * (t - y) < 0.004)
                        return NBX::Color(0.2, green, 0.1, 1.0);
                if (std::abs(s - 0.5) < 0.04 && t < 0.6) return NBX::Color(0.4, 0.3, 0.1, 1.0);
                return NBX::Color(0.2F, 0.5F, 0.1F, 0.0F);
            },
            NBX::LS_RGBA);
        Quads trees;
        for (int i = 0; i < s_blocks; ++i) {
            const V at(i * s_pitch + 2.0, 0.0, -4.0);
            trees.add(at, {6, 0, 0}, {0, 6, 0});
            trees.add(at + V(3, 0, -3), {0, 0, 6}, {0, 6, 0});
        }
        append(*transparent_, textureOf(image), trees);
    }

    std::mt19937 random_;
    NBX::SO<NBX::SceneThing> opaque_, transparent_;
};
