#include <nbx/gl/program/programobject.h>

#include <nbx/gl/program/fragmentshaderobject.h>
#include <nbx/gl/program/samplervariable.h>
#include <nbx/gl/program/uniformvariable.h>
#include <nbx/gl/program/vertexshaderobject.h>
#include <nbx/scene/shape/box.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;
using namespace NBX::GL2;

class ProgramObjectTest : public GLFixture {
protected:
    const SO<VertexShaderObject> vertex{
        new VertexShaderObject("void main() { gl_Position = ftransform(); }")};
    const SO<ProgramObject> program{new ProgramObject};

    void SetUp() override {
        GLFixture::SetUp();
        program->attach(vertex);
        root->append(program.get());
        root->append(new Box({-1.0, -1.0, 0.0}, {1.0, 1.0, 0.0}));
    }
    /// The colour that the fragment shader `source` gives.
    std::array<int, 4> colorOf(const std::string & source) {
        const SO<FragmentShaderObject> fragment(new FragmentShaderObject(source));
        program->attach(fragment);
        const auto result = pixel(draw(), 32, 32);
        program->detach(fragment.get());
        return result;
    }
};

TEST_F(ProgramObjectTest, TakesThePlaceOfTheFixedFunctions) {
    const std::vector<int> before = stateOfGL();
    EXPECT_EQ((std::array<int, 4>{0, 255, 0, 51}),
              colorOf("void main() { gl_FragColor = vec4(0.0, 1.0, 0.0, 0.2); }"));
    EXPECT_EQ(before, stateOfGL());
    EXPECT_TRUE(root->remove(program.get()));
    EXPECT_EQ((std::array<int, 4>{255, 255, 255, 255}), pixel(draw(), 32, 32));
}

template <class T> SO<BaseUniformVariable> variable(const T & value) {
    return SO<BaseUniformVariable>(new UniformVariable<T>("v", value));
}

TEST_F(ProgramObjectTest, SendsVariablesOfEachType) {
    struct Row {
        const char * type;
        const char * value; ///< of type vec4
        SO<BaseUniformVariable> variable;
    };
    auto matrix = Matrix4x4Base<double>::translation({0.2, 0.4, 0.6});
    matrix(3, 3) = 0.8;
    const Row rows[] = {
        {"int", "vec4(float(v) / 5.0, 0.4, 0.6, 0.8)", variable(1)},
        {"bool", "v ? vec4(0.2, 0.4, 0.6, 0.8) : vec4(1.0)", variable(true)},
        {"float", "vec4(v, 0.4, 0.6, 0.8)", variable(0.2F)},
        {"float", "vec4(v, 0.4, 0.6, 0.8)", variable(0.2)},
        {"vec2", "vec4(v, 0.6, 0.8)", variable(std::array<float, 2>{0.2F, 0.4F})},
        {"vec3", "vec4(v, 0.8)", variable(std::array<float, 3>{0.2F, 0.4F, 0.6F})},
        {"vec3", "vec4(v, 0.8)", variable(Vector3Base<float>(0.2F, 0.4F, 0.6F))},
        {"vec3", "vec4(v, 0.8)", variable(Vector3Base<double>(0.2, 0.4, 0.6))},
        {"vec4", "v", variable(std::array<float, 4>{0.2F, 0.4F, 0.6F, 0.8F})},
        {"vec4", "v", variable(Color(0.2, 0.4, 0.6, 0.8))},
        {"mat4", "v * vec4(0.0, 0.0, 0.0, 1.0)", variable(matrix)},
    };
    for (const Row & row : rows) {
        program->attach(row.variable);
        EXPECT_EQ((std::array<int, 4>{51, 102, 153, 204}),
                  colorOf(std::string("uniform ") + row.type +
                          " v; void main() { gl_FragColor = " + row.value + "; }"))
            << row.type;
        EXPECT_TRUE(program->detach(row.variable.get()));
    }
}

TEST_F(ProgramObjectTest, SendsChangedValues) {
    const SO<UniformVariable<Color>> color(new UniformVariable<Color>("color", Color::red));
    program->attach(color);
    program->attach(SO<BaseUniformVariable>(new UniformVariable<float>("notThere", 1.0F)));
    program->attach(SO<ShaderObject>(
        new FragmentShaderObject("uniform vec4 color; void main() { gl_FragColor = color; }")));
    EXPECT_EQ(Color::red, draw()->getColor(32, 32));
    color->setValue(Color::blue);
    EXPECT_EQ(Color::blue, draw()->getColor(32, 32));
    EXPECT_EQ(Color::blue, draw()->getColor(32, 32));
}

TEST_F(ProgramObjectTest, SamplersReadTheirUnit) {
    const unsigned char texel[] = {0, 0, 255, 255};
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glActiveTexture(GL_TEXTURE3);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, texel);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    program->attach(SO<BaseUniformVariable>(new SamplerVariable("tex", 3)));
    EXPECT_EQ((std::array<int, 4>{0, 0, 255, 255}),
              colorOf("uniform sampler2D tex; void main() { gl_FragColor = texture2D(tex, vec2(0.5)); }"));
    glBindTexture(GL_TEXTURE_2D, 0);
    glActiveTexture(GL_TEXTURE0);
    glDeleteTextures(1, &texture);
}

TEST_F(ProgramObjectTest, IsLinkedAnewWithAChangedShader) {
    const SO<FragmentShaderObject> fragment(
        new FragmentShaderObject("void main() { gl_FragColor = vec4(1, 0, 0, 1); }"));
    program->attach(fragment);
    EXPECT_EQ(Color::red, draw()->getColor(32, 32));
    fragment->setSource("void main() { gl_FragColor = vec4(0, 1, 0, 1); }");
    EXPECT_EQ(Color::green, draw()->getColor(32, 32));
}

TEST_F(ProgramObjectTest, ReportsErrorsInTheSourceOnce) {
    program->attach(SO<ShaderObject>(new FragmentShaderObject("void main() { gl_FragColor = nothing; }")));
    EXPECT_EQ((std::array<int, 4>{255, 255, 255, 255}), pixel(draw(), 32, 32)) << "the fixed functions";
    draw();
    ASSERT_EQ(1U, reports.size()) << reports;
    EXPECT_EQ(2, reports.last().level);
    EXPECT_EQ(0U, reports.last().message.find(L"cannot compile the shader: "));
    EXPECT_NE(std::wstring::npos, reports.last().message.find(L"nothing"));
    reports.clear();
}

TEST_F(ProgramObjectTest, ReportsProgramsThatDoNotLinkOnce) {
    const char * source = "vec4 missing(); void main() { gl_FragColor = missing(); }";
    program->attach(SO<ShaderObject>(new FragmentShaderObject(source)));
    draw();
    draw();
    ASSERT_EQ(1U, reports.size()) << reports;
    EXPECT_EQ(0U, reports.last().message.find(L"cannot link the program: "));
    EXPECT_EQ(0U, program->name());
    reports.clear();
}

TEST_F(ProgramObjectTest, ReportsMissingParts) {
    program->attach(SO<ShaderObject>());
    program->attach(SO<BaseUniformVariable>());
    EXPECT_EQ(1U, reports.count(0, L"shader", L"no shader"));
    EXPECT_EQ(1U, reports.count(0, L"variable", L"no variable"));
    EXPECT_FALSE(program->detach(static_cast<const ShaderObject *>(nullptr)));
    EXPECT_FALSE(program->detach(static_cast<const BaseUniformVariable *>(nullptr)));
    reports.clear();
}

TEST_F(ProgramObjectTest, SharesItsProgramWithOtherContextsAndFreesIt) {
    const SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(8, 8));
    SO<ProgramObject> own(new ProgramObject);
    own->attach(vertex);
    own->attach(
        SO<ShaderObject>(new FragmentShaderObject("void main() { gl_FragColor = vec4(1, 0, 0, 1); }")));
    ASSERT_TRUE(own->use());
    ProgramObject::useNone();
    const unsigned name = own->name();
    ASSERT_TRUE(other->makeContextCurrent());
    EXPECT_TRUE(own->use());
    EXPECT_EQ(name, own->name());
    ProgramObject::useNone();
    other->releaseContext();
    own = nullptr;
    EXPECT_FALSE(glIsProgram(name));
}

} // namespace
