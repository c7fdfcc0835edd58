#include <nbx/gl/state/shapematerialgl.h>

#include "support/glfixture.h"

#include <nbx/container/sequence/array.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/scene/shape/polygonset.h>

using namespace NBX;

class ShapeMaterialGLTest : public GLFixture {
protected:
    static std::vector<float> material(GLenum face, GLenum name) {
        std::vector<float> values(4);
        glGetMaterialfv(face, name, values.data());
        return values;
    }
    static std::vector<float> all() {
        std::vector<float> values(4);
        glGetFloatv(GL_CURRENT_COLOR, values.data());
        for (const GLenum face : {GL_FRONT, GL_BACK}) {
            for (const GLenum name : {GL_AMBIENT, GL_DIFFUSE, GL_SPECULAR, GL_EMISSION}) {
                const std::vector<float> v = material(face, name);
                values.insert(values.end(), v.begin(), v.end());
            }
            float shininess = 0.0F;
            glGetMaterialfv(face, GL_SHININESS, &shininess);
            values.push_back(shininess);
        }
        values.push_back(glIsEnabled(GL_COLOR_MATERIAL));
        return values;
    }
};

TEST_F(ShapeMaterialGLTest, UnlitSurfacesShowThePlainColour) {
    root->append(new LightModelGL(0));
    root->append(new ShapeMaterialGL(Color(0.5), Color(0.5), 115.0, 3, Color(0.2), Color(0.5), Color(0.0),
                                     false, true));
    auto * vertices = new Array<Vector3Base<double>>;
    for (const auto & [x, y] : {std::pair{-1.0, -1.0}, {1.0, -1.0}, {1.0, 1.0}, {-1.0, 1.0}})
        vertices->append({x, y, 0.0});
    root->append(new PolygonSet(PolygonSet::PT_Quads, SO<PolygonSet::Vertices>(vertices)));
    EXPECT_NEAR(127.5, pixel(draw(), 5, 5)[0], 0.6);
}

TEST_F(ShapeMaterialGLTest, ThePlainColourStandsInForTheNamedComponents) {
    const SO<ShapeMaterialGL> m = new ShapeMaterialGL(Color(0.6), Color(0.5), 115.0, 3, Color(0.2),
                                                      Color(0.4), Color(0.1), false, true);
    engine->push(m.get());
    EXPECT_EQ((std::vector<float>{0.6F, 0.6F, 0.6F, 1.0F}), material(GL_FRONT, GL_AMBIENT));
    EXPECT_EQ((std::vector<float>{0.6F, 0.6F, 0.6F, 1.0F}), material(GL_FRONT, GL_DIFFUSE));
    EXPECT_EQ((std::vector<float>{0.5F, 0.5F, 0.5F, 1.0F}), material(GL_FRONT, GL_SPECULAR));
    EXPECT_EQ((std::vector<float>{0.1F, 0.1F, 0.1F, 1.0F}), material(GL_FRONT, GL_EMISSION));
    engine->pop(m.get());
}

TEST_F(ShapeMaterialGLTest, AllStateIsGivenBack) {
    const std::vector<float> before = all();
    const std::vector<int> stateBefore = stateOfGL();
    for (int component = 0; component <= 5; ++component)
        for (const bool twoSided : {false, true}) {
            const SO<ShapeMaterialGL> m =
                new ShapeMaterialGL(Color::red, Color::green, 50.0, component, Color::blue, Color::gold,
                                    Color::yellow, twoSided, true);
            engine->push(m.get());
            EXPECT_NE(before, all());
            engine->pop(m.get());
            EXPECT_EQ(before, all()) << component;
        }
    EXPECT_EQ(stateBefore, stateOfGL());
}

TEST_F(ShapeMaterialGLTest, BadValuesAreReportedAndCut) {
    const SO<ShapeMaterialGL> m = new ShapeMaterialGL(Color::red, Color::green, 200.0, 9);
    EXPECT_EQ(2U, reports.size());
    EXPECT_EQ(128.0, m->getShininess());
    EXPECT_EQ(ShapeMaterialGL::C_None, m->getComponent());
    reports.clear();
}

TEST_F(ShapeMaterialGLTest, DisabledAtTheStart) {
    const SO<ShapeMaterialGL> m = new ShapeMaterialGL(Color::red, Color::green, 0.0, 3, Color::black,
                                                      Color::black, Color::black, false, false);
    EXPECT_FALSE(m->isEnabled());
}
