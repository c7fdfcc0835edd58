// The built-in texts, and the programs made of them. The shadow test and the fill are told at each program.

#include "ambientocclusionshaders.h"

#include <cstdio>

#include <nbx/data/objectloader.h>
#include <nbx/gl/program/fragmentshaderobject.h>
#include <nbx/gl/program/samplervariable.h>
#include <nbx/gl/program/shadersource.h>
#include <nbx/gl/program/vertexshaderobject.h>
#include <nbx/object/so.h>

namespace ZMT::UTIL {

namespace {

using Program = AmbientOcclusionShaders::Program;

const char * const s_atlasVertexText = R"(// use tex coord as vertex positions
uniform vec4 mvp0, mvp1, mvp2, mvp3;
uniform vec3 mvit0, mvit1, mvit2;

void main() {
    gl_Position = vec4(gl_MultiTexCoord0.xy * 2.0 - 1.0, 0.0, 1.0);
    vec4 p = vec4(dot(mvp0, gl_Vertex), dot(mvp1, gl_Vertex), dot(mvp2, gl_Vertex), dot(mvp3, gl_Vertex));
    gl_TexCoord[0] = vec4(p.xy / p.w * 0.5 + 0.5, p.z / p.w, 1.0);
    vec3 n = vec3(dot(mvit0, gl_Normal), dot(mvit1, gl_Normal), dot(mvit2, gl_Normal));
    gl_TexCoord[1] = vec4(n / max(length(n), 1e-20), 1.0);
}
)";

const char * const s_atlasFragmentText = R"(uniform sampler2DShadow tex0;
uniform vec3 intensityPerLightDir;
uniform float texelDelta;

void main() {
    float localDepth = gl_TexCoord[0].z * 0.5 + 0.5;
    float shadowTest = shadow2D(tex0, vec3(gl_TexCoord[0].xy, localDepth)).r;
    float weight = -min(0.0, gl_TexCoord[1].z);
    gl_FragColor = vec4(intensityPerLightDir * shadowTest * weight, 1.0);
}
)";

const char * const s_terrainVertexText = R"(uniform vec4 mvp0, mvp1, mvp2, mvp3;
uniform vec3 mvit0, mvit1, mvit2;

void main() {
    vec4 v = gl_ModelViewMatrix * gl_Vertex;
    gl_Position = gl_ProjectionMatrix * v;
    vec4 p = vec4(dot(mvp0, v), dot(mvp1, v), dot(mvp2, v), dot(mvp3, v));
    gl_TexCoord[0] = vec4(p.xy / p.w * 0.5 + 0.5, p.z / p.w, 1.0);
    vec3 viewNormal = gl_NormalMatrix * gl_Normal;
    vec3 n = vec3(dot(mvit0, viewNormal), dot(mvit1, viewNormal), dot(mvit2, viewNormal));
    // The last component tells that there is a normal.
    gl_TexCoord[1] = vec4(n / max(length(n), 1e-20), length(gl_Normal) > 0.0 ? 1.0 : 0.0);
    gl_TexCoord[2] = v;
}
)";

const char * const s_terrainFragmentText = R"(uniform sampler2DShadow tex0;
uniform vec3 intensityPerLightDir;
uniform vec3 mvit2;
uniform float texelDelta;

void main() {
    float localDepth = gl_TexCoord[0].z * 0.5 + 0.5;
    float shadowTest = shadow2D(tex0, vec3(gl_TexCoord[0].xy, localDepth)).r;
    vec3 faceNormal = cross(dFdx(gl_TexCoord[2].xyz), dFdy(gl_TexCoord[2].xyz));
    float faceZ = dot(mvit2, faceNormal) / max(length(faceNormal), 1e-20);
    float weight = -min(0.0, gl_TexCoord[1].w > 0.5 ? gl_TexCoord[1].z : faceZ);
    gl_FragColor = vec4(intensityPerLightDir * shadowTest * weight, 1.0);
}
)";

const char * const s_atlasPlaceText = R"(// use tex coord as vertex positions
void main() {
    gl_Position = vec4(gl_MultiTexCoord0.xy * 2.0 - 1.0, 0.0, 1.0);
    gl_TexCoord[0] = gl_MultiTexCoord0;
}
)";

const char * const s_atlasFillText = R"(uniform sampler2D tex0;
uniform float screenSize; // 1024.0

const float epsilon = 0.01;

vec4 weighted(vec2 place) {
    vec4 color = texture2D(tex0, place);
    return color.a > epsilon ? vec4(color.rgb, 1.0) : vec4(0.0);
}

void main() {
    float delta = 1.0 / screenSize;
    vec2 place = gl_FragCoord.xy * delta;
    vec4 color = texture2D(tex0, place);
    if (color.a <= epsilon) {
        vec4 sum = weighted(place - vec2(delta, 0.0)) + weighted(place + vec2(delta, 0.0)) +
                   weighted(place + vec2(0.0, delta)) + weighted(place - vec2(0.0, delta));
        if (sum.a > 0.0) color = sum / sum.a;
    }
    gl_FragColor = color;
}
)";

const char * const s_blendingText = R"(uniform sampler2D tex0;
uniform sampler2D tex1;

const float minValue = 0.0;
const float maxValue = 1.5;

void main() {
    vec3 val = texture2D(tex0, gl_TexCoord[0].st).rgb;
    vec4 color = texture2D(tex1, gl_TexCoord[1].st);
    float range = maxValue - minValue;
    color.xyz *= val * range + minValue;
    gl_FragColor = color;
}
)";

const char * const s_copyText = R"(uniform sampler2D tex0;

void main() {
    gl_FragColor = texture2D(tex0, gl_TexCoord[0].st);
}
)";

const char * const s_boostText = R"(uniform sampler2D AOTex;

void main() {
    vec4 color = gl_Color;
    vec3 val = texture2D(AOTex, gl_TexCoord[0].st).rgb;
    vec3 valScaled = mix(vec3(minValue), vec3(maxValue), val);
    gl_FragColor = vec4(color.rgb * valScaled, color.a);
}
)";

const char * const s_boostColorTextureText = R"(uniform sampler2D AOTex;
uniform sampler2D ColorTex;

void main() {
    vec4 color = texture2DProj(ColorTex, gl_TexCoord[1]);
    vec3 val = texture2D(AOTex, gl_TexCoord[0].st).rgb;
    vec3 valScaled = mix(vec3(minValue), vec3(maxValue), val);
    gl_FragColor = vec4(color.rgb * valScaled, color.a);
}
)";

bool s_readsFiles = false;

/// Outlive every canvas.
struct Programs {
    Program atlasCreator, terrainTextureCreator, triangleBorder, lightingTextureBlending, copy;
};

Programs & programs() {
    static auto * made = new Programs;
    return *made;
}

/// The text in the file where files are read, else, and where that is not possible, the built-in one.
std::string textOf(const char * fileName, const char * builtIn) {
    if (!s_readsFiles) return builtIn;
    const auto source = NBX::soCast<NBX::GL2::ShaderSource>(
        NBX::ObjectLoader::readFile(fileName, NBX::GL2::ShaderSource::ClassNameNBX(), true));
    return source ? source->text() : builtIn;
}

/// With the samplers `tex0` and `tex1` on the units 0 and 1. `vertexText` may be empty.
Program newProgram(const std::string & vertexText, const std::string & fragmentText) {
    Program program(new NBX::GL2::ProgramObject);
    if (!vertexText.empty()) program->attach(new NBX::GL2::VertexShaderObject(vertexText));
    program->attach(new NBX::GL2::FragmentShaderObject(fragmentText));
    program->attach(new NBX::GL2::SamplerVariable("tex0", 0));
    program->attach(new NBX::GL2::SamplerVariable("tex1", 1));
    return program;
}

} // namespace

Program AmbientOcclusionShaders::getAtlasCreatorProgram() {
    Program & program = programs().atlasCreator;
    if (!program) {
        const std::string vertexText = textOf("vertexshader.glsl", s_atlasVertexText);
        program = newProgram(vertexText, textOf("fragmentshader.glsl", s_atlasFragmentText));
    }
    return program;
}

Program AmbientOcclusionShaders::getTerrainTextureCreatorProgram() {
    Program & program = programs().terrainTextureCreator;
    if (!program) {
        const std::string vertexText = textOf("vertexshader_terrain.glsl", s_terrainVertexText);
        program = newProgram(vertexText, textOf("fragmentshader_terrain.glsl", s_terrainFragmentText));
    }
    return program;
}

Program AmbientOcclusionShaders::getTriangleBorderProgram() {
    Program & program = programs().triangleBorder;
    if (!program) program = newProgram(s_atlasPlaceText, textOf("atlasfillshader.glsl", s_atlasFillText));
    return program;
}

Program AmbientOcclusionShaders::getLightingTextureBlendingProgram() {
    Program & program = programs().lightingTextureBlending;
    if (!program) program = newProgram("", textOf("renderfragmentshader.glsl", s_blendingText));
    return program;
}

Program AmbientOcclusionShaders::getCopyProgram() {
    Program & program = programs().copy;
    if (!program) program = newProgram(s_atlasPlaceText, s_copyText);
    return program;
}

std::string AmbientOcclusionShaders::intensityBoostText(bool withColorTexture, float minValue,
                                                        float maxValue) {
    char prefix[200];
    std::snprintf(prefix, sizeof prefix, "const float minValue = %10.8f;\nconst float maxValue = %10.8f;\n",
                  static_cast<double>(minValue), static_cast<double>(maxValue));
    return prefix + std::string(withColorTexture ? s_boostColorTextureText : s_boostText);
}

void AmbientOcclusionShaders::setReadsFiles(bool reads) {
    s_readsFiles = reads;
    programs() = Programs();
}

bool AmbientOcclusionShaders::readsFiles() {
    return s_readsFiles;
}

} // namespace ZMT::UTIL
