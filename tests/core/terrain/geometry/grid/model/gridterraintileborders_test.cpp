// Tiles of different levels beside each other, seen from many sides: nothing of the background may show
// between them.

#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "support/glfixture.h"
#include "support/memorygridterrain.h"

using namespace ZMT::CORE::GRID;
using NBX::Matrix4x4Base;
using NBX::SO;
using Tile = GridTerrainTile;
using Key = MemoryGrid::Key;
using Point = NBX::Vector3Base<double>;

namespace {

struct Square {
    double x, y, side;

    Square quarter(unsigned i) const {
        return {x + (i & 1U ? side / 2 : 0), y + (i & 2U ? side / 2 : 0), side / 2};
    }
    double distance(double px, double py) const {
        return std::hypot(std::max({x - px, px - x - side, 0.0}), std::max({y - py, py - y - side, 0.0}));
    }
};

struct Drawn {
    SO<Tile> tile;
    Square square;
};

/// A choice of tiles of a terrain of 2^(2 L) cells: those in the high right quarter are the finer the nearer
/// they lie to its corner in the middle of the terrain, or to the middle of its lower border; the other three
/// quarters are drawn as they are. So levels of every difference up to L - 1 lie beside each other. A quarter
/// of the fine part has no detail of its own and is split into parts instead.
class Cut {
public:
    explicit Cut(unsigned level) : terrain_(gridOf(level)) {
        const double side = terrain_.state().grid.cells();
        middle_ = side / 2;
        choose({terrain_.rootTile(), {0, 0, side}});
        for (const Drawn & drawn : drawn_)
            setNeighbors(drawn);
    }

    const MemoryGridTerrain & terrain() const { return terrain_; }
    const std::vector<Drawn> & drawn() const { return drawn_; }
    double middle() const { return middle_; }

private:
    static MemoryGrid gridOf(unsigned level) {
        MemoryGrid grid;
        grid.level = level;
        grid.depth = level;
        const unsigned middle = grid.cells() / 2;
        grid.sample = [](unsigned, unsigned x, unsigned y) {
            return static_cast<std::uint16_t>(100 + (x * 0x9e3779b1U ^ y * 0x85ebca6bU) / 8191 % 5);
        };
        grid.kind = [=](const Key & key) -> unsigned {
            const unsigned x = key.x << key.depth, y = key.y << key.depth;
            const bool isInPart = x >= middle && y >= middle && x < middle * 3 / 2 && y < middle * 3 / 2;
            return key.depth + 3 == grid.depth && isInPart ? 1 : 2;
        };
        return grid;
    }

    bool wantsRefining(const Drawn & at) const {
        if (!at.tile->parent()) return true;
        if (at.tile->level() <= 0 || at.square.x < middle_ || at.square.y < middle_) return false;
        const double near = at.square.side * 0.3;
        return at.square.distance(middle_, middle_) < near ||
               at.square.distance(middle_ * 3 / 2, middle_) < near;
    }

    void choose(const Drawn & at) {
        at.tile->requestTileData(1e42, true, nullptr);
        if (!wantsRefining(at)) {
            at.tile->frameState(Tile::FS_Drawn);
            drawn_.push_back(at);
            return;
        }
        at.tile->frameState(Tile::FS_Refined);
        for (unsigned i = 0; i < 4; ++i)
            choose({at.tile->child(i, false), at.square.quarter(i)});
    }

    /// The tile at a position, of the level given or above.
    SO<Tile> find(double x, double y, int level) const {
        SO<Tile> tile = terrain_.rootTile();
        Square square{0, 0, middle_ * 2};
        if (square.distance(x, y) > 0.0) return nullptr;
        while (tile->frameState() == Tile::FS_Refined && tile->level() > level) {
            const unsigned i = (x >= square.x + square.side / 2) + (y >= square.y + square.side / 2) * 2;
            square = square.quarter(i);
            tile = tile->child(i, false);
        }
        return tile;
    }

    void setNeighbors(const Drawn & at) const {
        const double half = at.square.side / 2, x = at.square.x + half, y = at.square.y + half;
        const double beyond = half + 0.1;
        const Point places[] = {
            {x - beyond, y, 0}, {x, y - beyond, 0}, {x + beyond, y, 0}, {x, y + beyond, 0}};
        for (const auto border : {Tile::NI_LowX, Tile::NI_LowY, Tile::NI_HighX, Tile::NI_HighY}) {
            const auto beside = find(places[border].x, places[border].y, at.tile->level());
            const bool showsOneThing =
                beside && (beside->frameState() == Tile::FS_Drawn || beside->detailLevel() > beside->level());
            at.tile->neighbor(border, showsOneThing ? beside : nullptr);
        }
    }

    MemoryGridTerrain terrain_;
    std::vector<Drawn> drawn_;
    double middle_ = 0.0;
};

constexpr int s_size = 400;
constexpr double s_width = 16.0; ///< of the view, in cells

class GridTerrainTileBorders : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        picture = NBX::SO<NBX::OffscreenCanvasGL>(new NBX::OffscreenCanvasGL(s_size, s_size));
        ASSERT_TRUE(picture->isCreated());
        ASSERT_TRUE(picture->makeContextCurrent());
    }
    void TearDown() override {
        if (picture) picture->releaseContext();
        picture = nullptr;
        ASSERT_TRUE(canvas->makeContextCurrent());
        GLFixture::TearDown();
    }

    static void load(GLenum mode, const Matrix4x4Base<double> & matrix) {
        glMatrixMode(mode);
        glLoadMatrixd(matrix.columns().data());
    }

    /// Pixels in which the background shows; the view is parallel, so that it lies on the terrain entirely.
    unsigned background(const Cut & cut, const Point & centre, double azimuth, double elevation) {
        using Matrix = Matrix4x4Base<double>;
        glViewport(0, 0, s_size, s_size);
        glClearColor(1, 0, 1, 1);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glEnable(GL_DEPTH_TEST);
        glDisable(GL_CULL_FACE);
        load(GL_PROJECTION, Matrix::scaling({2 / s_width, 2 / s_width, -1e-3}));
        load(GL_MODELVIEW, Matrix::rotation({1, 0, 0}, elevation - std::numbers::pi / 2) *
                               Matrix::rotation({0, 0, 1}, azimuth) * Matrix::translation(-centre));
        cut.terrain().preRender(picture->engine().get(), false);
        for (const Drawn & drawn : cut.drawn()) {
            const double light = 0.3 + 0.1 * (drawn.tile->detailLevel() + 1);
            glColor3d(0.2, light, drawn.tile->detailLevel() > drawn.tile->level() ? 0.8 : 0.1);
            drawn.tile->renderGeometry(picture->engine().get(), false);
        }
        cut.terrain().postRender(picture->engine().get(), false);
        std::vector<std::uint8_t> pixels(std::size_t(s_size) * s_size * 4);
        glReadPixels(0, 0, s_size, s_size, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
        unsigned count = 0;
        for (std::size_t i = 0; i < pixels.size(); i += 4)
            count += pixels[i] == 255 && pixels[i + 1] == 0;
        return count;
    }

    NBX::SO<NBX::OffscreenCanvasGL> picture;
};

/// Calls `look` with what the borders are seen from.
void forViews(const Cut & cut, const std::function<void(const Point &, double, double)> & look) {
    std::mt19937 random(1);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (const double elevation : {85.0, 60.0, 40.0, 25.0, 15.0})
        for (unsigned i = 0; i < 8; ++i) {
            const double x = cut.middle() * (i % 2 ? 1.5 : 1.0) + unit(random) * 8 - 4;
            look(Point(x, cut.middle() + unit(random) * 8 - 4, 102.0),
                 (i + unit(random)) * std::numbers::pi / 4, elevation * std::numbers::pi / 180);
        }
}

} // namespace

TEST_F(GridTerrainTileBorders, NoBackgroundShowsBetweenTilesOfDifferentLevels) {
    for (const unsigned level : {4U, 5U}) {
        const Cut cut(level);
        forViews(cut, [&](const Point & centre, double azimuth, double elevation) {
            EXPECT_EQ(0U, background(cut, centre, azimuth, elevation))
                << "level " << level << " at " << centre.x << ", " << centre.y << ", azimuth " << azimuth
                << ", elevation " << elevation;
        });
    }
}

TEST_F(GridTerrainTileBorders, BackgroundShowsWhereBordersStayOpen) {
    const Cut cut(4);
    for (const Drawn & drawn : cut.drawn())
        for (const auto border : {Tile::NI_LowX, Tile::NI_LowY, Tile::NI_HighX, Tile::NI_HighY})
            drawn.tile->neighbor(border, nullptr);
    unsigned cracked = 0, views = 0;
    forViews(cut, [&](const Point & centre, double azimuth, double elevation) {
        cracked += background(cut, centre, azimuth, elevation) > 0;
        ++views;
    });
    EXPECT_GT(cracked, views / 4) << "the other test would see a crack";
}

TEST(GridTerrainTileBordersCut, HasAllDifferencesAndParts) {
    const Cut cut(4);
    std::set<int> differences;
    unsigned parts = 0;
    for (const Drawn & drawn : cut.drawn()) {
        parts += drawn.tile->detailLevel() > drawn.tile->level();
        for (const auto border : {Tile::NI_LowX, Tile::NI_LowY, Tile::NI_HighX, Tile::NI_HighY})
            if (const auto beside = drawn.tile->neighbor(border))
                differences.insert(beside->detailLevel() - drawn.tile->detailLevel());
    }
    for (int difference = 0; difference <= 3; ++difference)
        EXPECT_EQ(1U, differences.count(difference)) << difference;
    EXPECT_GT(parts, 4U);
}
