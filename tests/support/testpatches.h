#pragma once

#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

#include <support/glfixture.h>

#include <nbx/math/area.h>
#include <nbx/scene/view/lookat.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/tree/tinpatch.h>
#include <zmt/core/terrain/inspect/patchmesh.h>

#include "feedbackgl.h"
#include "testterrain.h"

/// Patches to be painted, and what their painters draw.
namespace TestPatches {

using Point = NBX::Vector3Base<double>;
using Triangles = std::vector<FeedbackGL::Triangle>;

constexpr double s_wall = -4.0;
constexpr double s_halfSize = 64.0;

/// 8 by 6 cells of bumpy ground, from height 0 to 6.
inline NBX::SO<ZMT::CORE::GridData> smallGrid() {
    return TestTerrain::grid({9, 7, 100.0, 200.0, 1.0, 2.0},
                             [](unsigned x, unsigned y) { return double((5 * x + 3 * y * y + x * y) % 7); });
}

inline NBX::SO<ZMT::CORE::GridPatch> gridPatch(const NBX::SO<ZMT::CORE::GridData> & grid,
                                               const NBX::Area & domain) {
    NBX::Bounds box;
    for (unsigned y = 0; y <= domain.getHeight(); ++y)
        for (unsigned x = 0; x <= domain.getWidth(); ++x)
            box += grid->vertex(unsigned(domain.getX()) + x, unsigned(domain.getY()) + y);
    return new ZMT::CORE::GridPatch(grid, domain, box, 0.0, s_wall, nullptr);
}

/// The rectangle of two triangles over the corners of `domain`.
inline NBX::SO<ZMT::CORE::TinPatch> tinPatch(const NBX::SO<ZMT::CORE::GridData> & grid,
                                             const NBX::Area & domain) {
    using TestTerrain::array;
    using Local = std::vector<unsigned short>;
    const unsigned x0 = unsigned(domain.getX()), y0 = unsigned(domain.getY());
    const unsigned x1 = x0 + domain.getWidth(), y1 = y0 + domain.getHeight();
    const std::vector<unsigned> numbers{grid->index(x0, y0), grid->index(x1, y0), grid->index(x0, y1),
                                        grid->index(x1, y1)};
    return new ZMT::CORE::TinPatch(
        grid, array(numbers), array<unsigned short>({0, 1, 2, 3}), array<unsigned>({4}), array(Local{0, 2}),
        x0 == 0, array(Local{2, 3}), y1 == grid->sizeY() - 1, array(Local{3, 1}), x1 == grid->sizeX() - 1,
        array(Local{1, 0}), y0 == 0, gridPatch(grid, domain)->boundingBox(), 1.0, s_wall, nullptr);
}

inline bool isSame(double a, double b) {
    return std::abs(a - b) < 0.01;
}

inline bool isCurtain(const FeedbackGL::Triangle & t) {
    return std::any_of(t.begin(), t.end(), [](const Point & p) { return isSame(p.y, s_wall); });
}

/// The line x = ... or z = ... on which a curtain stands.
inline std::string sideOf(const FeedbackGL::Triangle & t) {
    if (isSame(t[0].x, t[1].x) && isSame(t[0].x, t[2].x)) return "x " + std::to_string(std::lround(t[0].x));
    if (isSame(t[0].z, t[1].z) && isSame(t[0].z, t[2].z)) return "z " + std::to_string(std::lround(t[0].z));
    return "leans";
}

/// The lines on which curtains stand, with the number of their triangles.
inline std::map<std::string, unsigned> sidesOf(const Triangles & triangles) {
    std::map<std::string, unsigned> sides;
    for (const auto & t : triangles)
        if (isCurtain(t)) ++sides[sideOf(t)];
    return sides;
}

/// What is drawn one after the other: "ground" and the lines on which curtains stand.
inline std::vector<std::string> orderOf(const Triangles & triangles) {
    std::vector<std::string> order;
    for (const auto & t : triangles) {
        const std::string name = isCurtain(t) ? sideOf(t) : "ground";
        if (order.empty() || order.back() != name) order.push_back(name);
    }
    return order;
}

/// A triangle as its corners in thousandths, beginning with the least, in the direction in which it turns.
inline std::vector<std::array<long, 9>> normalized(const Triangles & triangles) {
    std::vector<std::array<long, 9>> result;
    for (const auto & t : triangles) {
        std::array<std::array<long, 3>, 3> corners;
        for (unsigned k = 0; k < 3; ++k)
            corners[k] = {std::lround(t[k].x * 100.0), std::lround(t[k].y * 100.0),
                          std::lround(t[k].z * 100.0)};
        std::rotate(corners.begin(), std::min_element(corners.begin(), corners.end()), corners.end());
        std::array<long, 9> & numbers = result.emplace_back();
        for (unsigned k = 0; k < 9; ++k)
            numbers[k] = corners[k / 3][k % 3];
    }
    std::sort(result.begin(), result.end());
    return result;
}

/// The triangles of the patch's mesh, in local coordinates.
inline Triangles meshOf(const ZMT::CORE::GeometryPatch & patch) {
    Triangles triangles;
    const ZMT::CORE::PatchMesh mesh(patch);
    const Point origin = patch.data()->origin();
    mesh.forEachTriangle([&](unsigned a, unsigned b, unsigned c) {
        triangles.push_back(
            {mesh.geoPosition(a) - origin, mesh.geoPosition(b) - origin, mesh.geoPosition(c) - origin});
    });
    return triangles;
}

} // namespace TestPatches

/// Tests of patch painters: the frame buffer of the canvas is current, and front faces turn clockwise, as
/// while a terrain is painted.
class PatchPainterFixture : public GLFixture {
protected:
    using Point = NBX::Vector3Base<double>;
    using Triangles = TestPatches::Triangles;

    void SetUp() override {
        GLFixture::SetUp();
        canvas->prepareRedisplay();
        glFrontFace(GL_CW);
    }
    void TearDown() override {
        canvas->finishRedisplay();
        GLFixture::TearDown();
    }

    /// From above, with every triangle, turned as it is given.
    static Triangles feedback(const std::function<void()> & draw) {
        return FeedbackGL::triangles(FeedbackGL::fromAbove(TestPatches::s_halfSize), draw);
    }
    template <class Painter> Triangles surface(Painter & painter, const ZMT::CORE::GeometryPatch & patch) {
        return feedback([&] { painter.renderPatch(engine.get(), &patch); });
    }
    template <class Painter> Triangles walls(Painter & painter, const ZMT::CORE::GeometryPatch & patch) {
        return feedback([&] { painter.renderOuterWall(engine.get(), &patch); });
    }

    /// The colour at a point of what `draw` shows from above.
    std::array<int, 3> colorAt(const Point & p, const std::function<void()> & draw) {
        constexpr double halfSize = 8.0;
        const auto toClip = FeedbackGL::fromAbove(halfSize);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glViewport(0, 0, 64, 64);
        FeedbackGL::loadMatrices(toClip);
        draw();
        const Point onScreen = (toClip * p + Point(1, 1, 1)) * 32.0;
        std::array<GLubyte, 4> color{};
        glReadPixels(int(onScreen.x), int(onScreen.y), 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, color.data());
        return {color[0], color[1], color[2]};
    }

    /// Number of triangles whose front is seen along `forward`.
    static std::size_t frontsSeen(const Point & forward, const std::function<void()> & draw) {
        const NBX::LookAt eye(forward * -1.0, {},
                              std::abs(forward.y) > 0.5 ? Point(0, 0, 1) : Point(0, 1, 0));
        const double scale = 1.0 / TestPatches::s_halfSize;
        const auto toClip = NBX::Matrix4x4Base<double>::scaling({scale, scale, -scale}) * eye.matrix();
        glEnable(GL_CULL_FACE);
        const std::size_t count = FeedbackGL::triangles(toClip, draw).size();
        glDisable(GL_CULL_FACE);
        return count;
    }

    /// Each curtain alone, seen from outside and from inside. `makePatch` gives a patch of `smallGrid`.
    template <class Painter, class MakePatch>
    void expectCurtainsLookOutwards(Painter & painter, const MakePatch & makePatch) {
        const struct {
            const char * name;
            Point inwards;
            NBX::Area withSkirt, withWall; ///< that have a skirt or a wall on this side alone
        } sides[] = {{"low x", {1, 0, 0}, {5, 0, 3, 6}, {0, 1, 3, 4}},
                     {"high x", {-1, 0, 0}, {0, 0, 3, 6}, {5, 1, 3, 4}},
                     {"low y", {0, 0, 1}, {0, 4, 8, 2}, {2, 0, 3, 2}},
                     {"high y", {0, 0, -1}, {0, 0, 8, 2}, {2, 4, 3, 2}}};
        for (const auto & side : sides) {
            SCOPED_TRACE(side.name);
            const auto skirted = makePatch(side.withSkirt), walled = makePatch(side.withWall);
            const auto drawSkirt = [&] { painter.renderPatch(engine.get(), skirted.get()); };
            const auto drawWall = [&] { painter.renderOuterWall(engine.get(), walled.get()); };
            // Steeply from below, where no surface shows its front.
            const Point up(0, 9, 0);
            EXPECT_GE(frontsSeen(up + side.inwards, drawSkirt), 2U);
            EXPECT_EQ(frontsSeen(up - side.inwards, drawSkirt), 0U);
            EXPECT_GE(frontsSeen(side.inwards, drawWall), 2U);
            EXPECT_EQ(frontsSeen(side.inwards * -1.0, drawWall), 0U);
        }
    }
};
