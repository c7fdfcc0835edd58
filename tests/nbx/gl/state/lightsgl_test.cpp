#include "nbx/gl/state/lightsgl.h"

#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/scene/attribute/directionallight.h>
#include <nbx/scene/attribute/distantlight.h>
#include <nbx/scene/attribute/pointlight.h>
#include <nbx/scene/attribute/shapematerial.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/tf.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class LightsGLTest : public GLFixture {
protected:
    const SO<ShapeMaterial> white{new ShapeMaterial(Color::white)};
    const SO<LightModelGL> noAmbient{new LightModelGL(3, Color::black)};
    const SO<Box> box{new Box({-1.0, -1.0, -1.0}, {1.0, 1.0, 1.0})};

    void SetUp() override {
        GLFixture::SetUp();
        // Seen along -z, so that the side with the normal (0, 0, 1) fills the picture.
        root->append(new Camera(new LookAt({0.0, 0.0, 5.0}, {0.0, 0.0, 0.0}),
                                new Ortho(-1.0, 1.0, -1.0, 1.0, 1.0, 9.0)));
        root->append(noAmbient.get());
        root->append(white.get());
    }
    std::array<int, 4> middle() { return pixel(draw(), 32, 32); }
};

TEST_F(LightsGLTest, LightFromAfarFallsAlongItsDirection) {
    struct Row {
        Vector3Base<double> direction;
        int expected;
    };
    for (const Row & row : {Row{{0.0, 0.0, -1.0}, 255}, Row{{0.0, 0.0, -20.0}, 255}, Row{{0.0, 0.0, 1.0}, 0},
                            Row{{0.0, -1.0, -1.0}, 180}, Row{{1.0, 0.0, 0.0}, 0}}) {
        const SO<DirectionalLight> light(new DirectionalLight(row.direction));
        root->append(light.get());
        root->append(box.get());
        EXPECT_NEAR(row.expected, middle()[0], 1)
            << row.direction.x << ", " << row.direction.y << ", " << row.direction.z;
        root->remove(box.get());
        root->remove(light.get());
    }
}

TEST_F(LightsGLTest, ADistantLightComesFromItsDirectionAndALittleFromEverywhere) {
    struct Row {
        Vector3Base<double> direction;
        double intensity, ambient;
        int expected;
    };
    for (const Row & row : {Row{{0.0, 0.0, 1.0}, 1.0, 0.0, 255}, Row{{0.0, 0.0, 20.0}, 1.0, 0.5, 255},
                            Row{{0.0, 0.0, -1.0}, 1.0, 0.0, 0}, Row{{0.0, 0.0, -1.0}, 1.0, 0.4, 102},
                            Row{{0.0, 1.0, 1.0}, 1.0, 0.0, 180}, Row{{0.0, 0.0, 1.0}, 0.6, 0.5, 153},
                            Row{{1.0, 0.0, 0.0}, 0.6, 0.5, 77}, Row{{1.0, 0.0, 0.0}, 1.0, 1.0, 255}}) {
        const SO<DistantLight> light(
            new DistantLight(row.direction, Color::white, row.intensity, row.ambient));
        root->append(light.get());
        root->append(box.get());
        EXPECT_NEAR(row.expected, middle()[0], 1)
            << row.direction.x << ", " << row.direction.y << ", " << row.direction.z << ", " << row.intensity
            << ", " << row.ambient;
        root->remove(box.get());
        root->remove(light.get());
    }
}

TEST_F(LightsGLTest, ShowTheColorOfAMaterial) {
    root->remove(white.get());
    root->append(new DirectionalLight({0.0, 0.0, -1.0}));
    root->append(new ShapeMaterialGL(Color(0.2, 0.4, 0.6, 1.0), Color::black, 0.0));
    root->append(box.get());
    const auto color = middle();
    EXPECT_NEAR(51, color[0], 1);
    EXPECT_NEAR(102, color[1], 1);
    EXPECT_NEAR(153, color[2], 1);
}

TEST_F(LightsGLTest, LightsAddUp) {
    root->append(new DirectionalLight({0.0, 0.0, -1.0}, Color(0.2, 0.0, 0.0, 1.0)));
    root->append(new DirectionalLight({0.0, 0.0, -1.0}, Color(0.4, 0.0, 0.6, 1.0)));
    root->append(box.get());
    const auto color = middle();
    EXPECT_NEAR(153, color[0], 1);
    EXPECT_NEAR(153, color[2], 1);
}

TEST_F(LightsGLTest, ALightHoldsForItsNode) {
    const SO<SceneThing> lit(new SceneThing);
    lit->append(new DirectionalLight({0.0, 0.0, -1.0}, Color(0.4, 0.0, 0.0, 1.0)));
    root->append(lit.get());
    root->append(new DirectionalLight({0.0, 0.0, -1.0}, Color(0.0, 0.6, 0.0, 1.0)));
    root->append(box.get());
    const auto color = middle();
    EXPECT_EQ(0, color[0]);
    EXPECT_NEAR(153, color[1], 1);
}

TEST_F(LightsGLTest, ALightStaysInTheFrameOfItsNode) {
    root->append(new DirectionalLight({0.0, 0.0, -1.0}));
    root->append(new Tf(Matrix4x4Base<double>::rotation({0.0, 1.0, 0.0}, 3.14159265358979)));
    root->append(box.get());
    EXPECT_NEAR(255, middle()[0], 1) << "the turned box is lit on the side of the viewer";
    root->remove(box.get());
    root->append(new DirectionalLight({0.0, 0.0, 1.0}, Color(0.0, 1.0, 0.0, 1.0)));
    root->append(box.get());
    EXPECT_NEAR(255, middle()[1], 1);
}

TEST_F(LightsGLTest, PointLightsShineFromTheirPlace) {
    root->append(new PointLight({0.0, 0.0, 1.5}));
    root->append(box.get());
    const SO<Image> image = draw();
    EXPECT_GT(pixel(image, 32, 32)[0], 0);
    root->clear();
    root->append(noAmbient.get());
    EXPECT_EQ(0, pixel(draw(), 32, 32)[0]);
}

TEST_F(LightsGLTest, SurfacesAreUnlitWithoutLights) {
    root->remove(noAmbient.get());
    root->append(box.get());
    EXPECT_EQ(255, middle()[0]);
    const SO<DirectionalLight> disabled(new DirectionalLight);
    disabled->setEnableState(false);
    root->prepend(disabled.get());
    EXPECT_EQ(255, middle()[0]);
}

TEST_F(LightsGLTest, LeavesTheStateOfGLAsItIsFound) {
    const std::vector<int> before = stateOfGL();
    for (int i = 0; i < 12; ++i)
        root->append(new DirectionalLight({0.0, 0.0, -1.0}, Color(0.05, 0.0, 0.0, 1.0)));
    root->append(box.get());
    EXPECT_GE(middle()[0], 8 * 13 - 8) << "at least eight of the twelve shine";
    EXPECT_EQ(before, stateOfGL());
}

} // namespace
