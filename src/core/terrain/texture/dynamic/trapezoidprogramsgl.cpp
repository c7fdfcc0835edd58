// What all passes over a whole target have in common is the vertex stage, which computes the place of a
// fragment itself: drivers differ in what they say of it.
//
// A triangle is a hole where one of its corners is, so fragments are left out wherever the flag, which is
// interpolated, falls below 1: with a threshold of 0 all but a corner of it would stand, as a spike down to
// the height for no data. A neighbour without a height does not light a slope either; the pixel's own height
// stands in for it.

#include "trapezoidprogramsgl.h"

#include <GL/glew.h>

#include <nbx/gl/program/fragmentshaderobject.h>
#include <nbx/gl/program/vertexshaderobject.h>

namespace ZMT::CORE {

namespace {

const std::string s_heightVertex = R"(
uniform mat4 trapMat;
varying float height;
varying float alpha;
void main() {
    height = gl_Vertex.z;
    alpha = gl_Color.a;
    gl_Position = trapMat * vec4(gl_Vertex.xy, 0.0, 1.0);
}
)";

const std::string s_heightFragment = R"(
varying float height;
void main() { gl_FragColor = vec4(height, height, height, 1.0); }
)";

const std::string s_vectorVertex = R"(
uniform mat4 trapMat;
varying vec4 color;
void main() {
    color = gl_Color;
    vec4 p = trapMat * vec4(gl_Vertex.xy, 0.0, 1.0);
    gl_Position = vec4(p.xy, 0.0, p.w);
}
)";

const std::string s_vectorFragment = R"(
varying vec4 color;
void main() { gl_FragColor = color; }
)";

const std::string s_texturedVertex = R"(
uniform mat4 trapMat;
varying vec4 color;
void main() {
    color = gl_Color;
    vec4 p = trapMat * vec4(gl_Vertex.xy, 0.0, 1.0);
    gl_Position = vec4(p.xy, 0.0, p.w);
    gl_TexCoord[0] = gl_TextureMatrix[0] * gl_MultiTexCoord0;
}
)";

const std::string s_texturedFragment = R"(
uniform sampler2D textureSampler;
void main() { gl_FragColor = texture2DProj(textureSampler, gl_TexCoord[0]); }
)";

/// `size` is the variable with the size of the target.
std::string wholeTargetVertex(const std::string & size) {
    return "uniform vec2 " + size + ";\n" + R"(
varying vec2 fake_FragCoordForATI;
void main() {
    fake_FragCoordForATI = ((gl_Vertex.xy * 0.5) + 0.5) * )" +
           size + R"(;
    gl_Position = vec4(gl_Vertex.xy, 0.0, 1.0);
}
)";
}

const std::string s_lightingFragment = R"(
uniform mat4 invTrapMat;
uniform vec3 lightDir;
uniform vec2 textureDimension;
uniform sampler2D textureSampler;
varying vec2 fake_FragCoordForATI;

vec3 world(vec2 p, float own) {
    float h = texture2D(textureSampler, p).z;
    vec4 v = invTrapMat * vec4(p, 0.0, 1.0);
    return vec3(v.xy / v.w, (h != 0.0) && (h > -500.0) ? h : own);
}

void main() {
    vec2 p0 = fake_FragCoordForATI.xy / textureDimension;
    vec2 pixel = 1.0 / textureDimension;
    float own = texture2D(textureSampler, p0).z;
    vec3 w1 = world(p0 + vec2(pixel.x, 0.0), own);
    vec3 w2 = world(p0 - vec2(pixel.x, 0.0), own);
    vec3 w3 = world(p0 + vec2(0.0, pixel.y), own);
    vec3 w4 = world(p0 - vec2(0.0, pixel.y), own);
    vec3 diff12 = normalize(w1 - w2);
    vec3 diff34 = normalize(w3 - w4);
    vec3 normal = normalize(cross(diff12, diff34));
    gl_FragColor = vec4(vec3(dot(normal, lightDir)), 1.0);
}
)";

/// `counts` says of `height` whether it is one.
std::string meshVertex(const std::string & counts) {
    return R"(
uniform mat4 invTrapMat;
uniform mat4 mvpMat;
attribute vec2 gridXY;
attribute vec4 gridZ;
varying vec4 currentVertex;
void main() {
    float height = gridZ.z;
    vec4 tp = invTrapMat * vec4(gridXY, 0.0, 1.0);
    gl_Position = mvpMat * vec4(tp.xy / tp.w, height, 1.0);
    float counts = )" +
           counts + R"( ? 1.0 : 0.0;
    gl_FrontColor = vec4(1.0, 1.0, 1.0, counts);
    gl_BackColor = vec4(1.0, 1.0, 1.0, counts);
    currentVertex = vec4(gridXY, height, 1.0);
}
)";
}

const std::string s_aboveNoData = "(height != 0.0) && (height > -500.0)";
const std::string s_otherThanNoData = "(height != 0.0) && (height != -9999.0)";

std::string meshFragment(const std::string & color) {
    return R"(
uniform sampler2D textureSampler;
varying vec4 currentVertex;
void main() {
    if (gl_Color.a < 0.999) discard;
    gl_FragColor = )" +
           color + ";\n}\n";
}

/// `combine` makes `result` of the four pixels w1 to w4.
std::string reductionFragment(const std::string & combine) {
    return R"(
uniform vec2 sourceTextureSize;
uniform vec2 sourceViewport;
uniform vec2 targetViewport;
uniform sampler2D sourceTextureSampler;
uniform float isFirstPass;
varying vec2 fake_FragCoordForATI;
)" + combine +
           R"(
void main() {
    vec2 pixelOffset = 1.0 / sourceTextureSize;
    vec2 p0 = (fake_FragCoordForATI.xy - 0.5) * (sourceViewport / targetViewport) / sourceTextureSize
        + 0.5 * pixelOffset;
    vec4 w1 = texture2D(sourceTextureSampler, p0);
    vec4 w2 = texture2D(sourceTextureSampler, p0 + vec2(pixelOffset.x, 0.0));
    vec4 w3 = texture2D(sourceTextureSampler, p0 + vec2(0.0, pixelOffset.y));
    vec4 w4 = texture2D(sourceTextureSampler, p0 + pixelOffset);
    begin();
    add(w1);
    add(w2);
    add(w3);
    add(w4);
    gl_FragColor = combined();
}
)";
}

const std::string s_statistics = R"(
vec3 result;
float count;
void begin() {
    result = vec3(9999.0, -9999.0, 0.0);
    count = 0.0;
}
void add(vec4 w) {
    if (w.x > -500.0) result.x = min(result.x, w.x);
    if (w.y > -500.0) result.y = max(result.y, w.y);
    if (w.z > -500.0) {
        result.z += w.z;
        count += 1.0;
    }
}
vec4 combined() { return vec4(result.xy, count > 0.0 ? result.z / count : -9999.0, 1.0); }
)";

const std::string s_bounds = R"(
vec4 result;
void begin() { result = vec4(9999.0, -9999.0, 9999.0, -9999.0); }
void add(vec4 pixel) {
    vec4 w = isFirstPass > 0.0 ? pixel.yyzz : pixel;
    if (w.x >= 0.0 && w.x <= 1.0) result.x = min(result.x, w.x);
    if (w.y >= 0.0 && w.y <= 1.0) result.y = max(result.y, w.y);
    if (w.z > -500.0) result.z = min(result.z, w.z);
    if (w.w > -500.0) result.w = max(result.w, w.w);
}
vec4 combined() { return result; }
)";

/// Never destroyed itself: pictures may be drawn while libraries unload.
TrapezoidProgramGL & newProgram(const std::string & vertexStage, const std::string & fragmentStage) {
    auto & program = *new TrapezoidProgramGL(vertexStage, fragmentStage);
    program.setSampler("textureSampler");
    program.setSampler("sourceTextureSampler");
    return program;
}

} // namespace

TrapezoidProgramGL::TrapezoidProgramGL(const std::string & vertexStage, const std::string & fragmentStage)
    : program_(new NBX::GL2::ProgramObject) {
    program_->attach(NBX::SO<NBX::GL2::ShaderObject>(new NBX::GL2::VertexShaderObject(vertexStage)));
    program_->attach(NBX::SO<NBX::GL2::ShaderObject>(new NBX::GL2::FragmentShaderObject(fragmentStage)));
}

void TrapezoidProgramGL::setSampler(const std::string & name, int unit) {
    NBX::SO<NBX::GL2::BaseUniformVariable> & variable = variables_[name];
    variable = new NBX::GL2::SamplerVariable(name, unit);
    program_->attach(variable);
}

TrapezoidProgramGL & TrapezoidProgramsGL::height() {
    static TrapezoidProgramGL & program = newProgram(s_heightVertex, s_heightFragment);
    return program;
}

TrapezoidProgramGL & TrapezoidProgramsGL::vectors() {
    static TrapezoidProgramGL & program = newProgram(s_vectorVertex, s_vectorFragment);
    return program;
}

TrapezoidProgramGL & TrapezoidProgramsGL::textured() {
    static TrapezoidProgramGL & program = newProgram(s_texturedVertex, s_texturedFragment);
    return program;
}

TrapezoidProgramGL & TrapezoidProgramsGL::lighting() {
    static TrapezoidProgramGL & program =
        newProgram(wholeTargetVertex("textureDimension"), s_lightingFragment);
    return program;
}

TrapezoidProgramGL & TrapezoidProgramsGL::mesh() {
    static TrapezoidProgramGL & program =
        newProgram(meshVertex(s_aboveNoData), meshFragment("currentVertex"));
    return program;
}

TrapezoidProgramGL & TrapezoidProgramsGL::meshPattern() {
    static TrapezoidProgramGL & program =
        newProgram(meshVertex(s_otherThanNoData),
                   meshFragment("vec4(vec3(abs(sin(currentVertex.z / 4.0))), gl_Color.a)"));
    return program;
}

TrapezoidProgramGL & TrapezoidProgramsGL::meshTextured() {
    static TrapezoidProgramGL & program =
        newProgram(meshVertex(s_aboveNoData), meshFragment("texture2D(textureSampler, currentVertex.xy)"));
    return program;
}

TrapezoidProgramGL & TrapezoidProgramsGL::heightStatistics() {
    static TrapezoidProgramGL & program =
        newProgram(wholeTargetVertex("targetViewport"), reductionFragment(s_statistics));
    return program;
}

TrapezoidProgramGL & TrapezoidProgramsGL::usedRange() {
    static TrapezoidProgramGL & program =
        newProgram(wholeTargetVertex("targetViewport"), reductionFragment(s_bounds));
    return program;
}

std::array<TrapezoidProgramGL *, 3> TrapezoidProgramsGL::ofTrapezoids() {
    return {&height(), &vectors(), &textured()};
}

TrapezoidProgramsGL::Matrix & TrapezoidProgramsGL::trapMat() {
    static Matrix inForce;
    return inForce;
}

void TrapezoidProgramsGL::setTrapMat(const Matrix & matrix) {
    trapMat() = matrix;
    for (TrapezoidProgramGL * program : ofTrapezoids())
        program->set("trapMat", matrix);
}

bool TrapezoidProgramsGL::useTextured(const Matrix & trapMat) {
    setTrapMat(trapMat);
    return textured().use();
}

TrapezoidProgramsGL::TrapMatScope::TrapMatScope(const Matrix & matrix) : before_(trapMat()) {
    setTrapMat(matrix);
}

TrapezoidProgramsGL::TrapMatScope::~TrapMatScope() {
    setTrapMat(before_);
    const GLhandleARB inUse = glGetHandleARB(GL_PROGRAM_OBJECT_ARB);
    for (const TrapezoidProgramGL * program : ofTrapezoids())
        if (program->program()->name() == inUse) program->program()->updateVariables();
}

} // namespace ZMT::CORE
