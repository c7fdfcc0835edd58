#include <zmt/core/terrain/frame/terrainscalingsimplifier.h>

#include <cmath>
#include <numbers>

#include <nbx/engine/shapepainter.h>
#include <nbx/engine/simplifier.h>
#include <nbx/scene/attribute/directionallight.h>
#include <nbx/scene/attribute/distantlight.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <nbx/scene/view/scaling.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

#include "support/testpatches.h"

using ZMT::CORE::Terrain;
using ZMT::CORE::TerrainPainterGLSettings;
using ZMT::CORE::TerrainScaling;
using ZMT::CORE::TerrainScalingSimplifier;

namespace {

using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;

/// 64 by 64 cells of gentle hills around the origin of their local frame, over a tree of several levels.
NBX::SO<Terrain> hills(double factor = 1.0) {
    const auto grid = TestTerrain::grid({65, 65, 0.0, 0.0, 1.0, 1.0}, [factor](unsigned x, unsigned y) {
        return factor * (2.0 + std::sin(x * 0.4) + std::cos(y * 0.3 + x * 0.1) + 0.3 * std::sin(x * 1.3 + y));
    });
    return new Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 100).get());
}

class TerrainScalingSimplifierTest : public GLFixture {
protected:
    NBX::SO<NBX::Image> picture(NBX::Attribute * attribute) {
        root->clear();
        root->append(new NBX::Camera(new NBX::LookAt({32, 40, -25}, {32, 0, 32}),
                                     new NBX::Perspective(50.0, 1.0, 300.0)));
        root->append(new NBX::DirectionalLight(Point(0.3, -1.0, 0.2)));
        if (attribute) root->append(attribute);
        root->append(terrain.get());
        return draw();
    }

    /// From straight above, without the walls.
    NBX::SO<NBX::Image> middle(const NBX::SO<Terrain> & shown, NBX::Attribute * attribute) {
        root->clear();
        root->append(new NBX::Camera(new NBX::LookAt({32, 50, 32}, {32, 0, 32}, {0, 0, 1}),
                                     new NBX::Ortho(-25, 25, -25, 25, 1.0, 300.0)));
        root->append(new NBX::DistantLight(Point(-0.5, 1.0, 0.7), NBX::Color::white, 1.0, 0.2));
        if (attribute) root->append(attribute);
        root->append(shown.get());
        return draw();
    }

    const NBX::SO<Terrain> terrain = hills();
};

TEST_F(TerrainScalingSimplifierTest, IsTheSimplifierOfTerrainScalings) {
    EXPECT_EQ(TerrainScalingSimplifier().target(), TerrainScaling::ClassNameNBX());
    EXPECT_TRUE(dynamic_cast<TerrainScalingSimplifier *>(
        engine->findHandler(NBX::Simplifier::ClassNameNBX(), TerrainScaling::ClassInfoNBX())));
    const NBX::SO<NBX::Scaling> other(new NBX::Scaling({2, 2, 2}));
    EXPECT_FALSE(TerrainScalingSimplifier().simplify(engine.get(), other.get(), true));
    EXPECT_EQ(engine->modelMatrix(), Matrix());
}

TEST_F(TerrainScalingSimplifierTest, IsAPlainTransformation) {
    const NBX::SO<NBX::Engine> plain(new NBX::Engine);
    const NBX::SO<TerrainScaling> scaling(new TerrainScaling({1, 4, 2}));
    const auto place = Matrix::translation({10, 20, 30});
    for (NBX::Engine * e : {plain.get(), static_cast<NBX::Engine *>(engine.get())}) {
        e->pushModelMatrix(place);
        {
            const NBX::AttributeScope scope(e, scaling.get());
            EXPECT_EQ(e->modelMatrix(), place * Matrix::scaling({1, 4, 2}));
        }
        EXPECT_EQ(e->modelMatrix(), place);
        e->popModelMatrix();
    }
    scaling->setEnableState(false);
    const NBX::AttributeScope scope(plain.get(), scaling.get());
    EXPECT_EQ(plain->modelMatrix(), Matrix());
}

/// Its factors may change while it is in force.
TEST_F(TerrainScalingSimplifierTest, LeavesNoMatrixBehind) {
    const NBX::SO<TerrainScaling> scaling(new TerrainScaling({1, 4, 1}));
    engine->push(scaling.get());
    scaling->setScaling({1, 9, 1});
    engine->pop(scaling.get());
    EXPECT_EQ(engine->modelMatrix(), Matrix());
}

TEST_F(TerrainScalingSimplifierTest, ShowsThePictureOfAScaling) {
    const auto flat = picture(nullptr);
    for (const Point & factors : {Point(1, 4, 1), Point(1, 0.2, 1), Point(1.2, 2, 0.9)}) {
        const auto scaled = picture(new TerrainScaling(factors));
        EXPECT_EQ(largestDifference(scaled, picture(new NBX::Scaling(factors))), 0);
        EXPECT_GT(largestDifference(scaled, flat), 20);
    }
    EXPECT_EQ(largestDifference(picture(new TerrainScaling({1, 1, 1})), flat), 0);
}

/// Normals become those of the exaggerated surface, of length 1, and the light stays where it is.
TEST_F(TerrainScalingSimplifierTest, IsLitAsATerrainOfThatHeight) {
    const double allowed = TerrainPainterGLSettings::getGeometryError();
    TerrainPainterGLSettings::setGeometryError(0.0);
    for (const double factor : {0.2, 5.0}) {
        const auto scaled = middle(hills(), new TerrainScaling({1, factor, 1}));
        EXPECT_LE(largestDifference(scaled, middle(hills(factor), nullptr)), 1) << factor;
        EXPECT_GT(largestDifference(scaled, middle(hills(), nullptr)), 20) << factor;
    }
    TerrainPainterGLSettings::setGeometryError(allowed);
}

/// Counts the patches that are painted, by the number of their children.
class CountedPatch : public ZMT::CORE::GeometryPatch {
    NBX_TEMPLATE_CLASS(CountedPatch, ZMT::CORE::GeometryPatch)
public:
    using GeometryPatch::GeometryPatch;
    NBX::SO<ZMT::CORE::GeometryData> data() const override { return nullptr; }
};

unsigned s_parentsPainted = 0, s_leavesPainted = 0;

class CountedPatchPainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(CountedPatchPainter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return CountedPatch::ClassNameNBX(); }
    bool render(NBX::Engine *, const NBX::Shape * shape) override {
        ++(static_cast<const CountedPatch *>(shape)->children() > 0 ? s_parentsPainted : s_leavesPainted);
        return true;
    }
};

const bool painterRegistered = (NBX::EngineGL::registerHandler(new CountedPatchPainter), true);

/// One pixel spans one unit, and 3 pixels of error are allowed.
TEST_F(TerrainScalingSimplifierTest, ErrorsAndTheViewAreThoseOfTheScaledTerrain) {
    using Children = NBX::Array<NBX::SO<ZMT::CORE::GeometryPatch>>;
    const NBX::Bounds box({-5, 10, -5}, {5, 20, 5});
    const auto paint = [&](double height) {
        s_parentsPainted = s_leavesPainted = 0;
        const NBX::SO<Children> children(new Children);
        children->append(new CountedPatch(box, 0.0, 0.0, nullptr));
        root->clear();
        root->append(new NBX::Camera(
            new NBX::LookAt({0, 0, -100}, {}),
            new NBX::Perspective(2.0 * std::atan(0.32) * 180.0 / std::numbers::pi, 1.0, 300.0)));
        root->append(new TerrainScaling({1, height, 1}));
        root->append(new Terrain(nullptr, new CountedPatch(box, 1.1, 0.0, children)));
        canvas->redisplay();
        return std::pair(s_parentsPainted > 0, s_leavesPainted > 0);
    };
    EXPECT_EQ(paint(1.0), std::pair(true, false));
    EXPECT_EQ(paint(2.4), std::pair(true, false));
    EXPECT_EQ(paint(2.8), std::pair(false, true));
    EXPECT_EQ(paint(-2.8), std::pair(false, true));
    EXPECT_EQ(paint(3.6), std::pair(false, false)) << "above the view";
}

} // namespace
